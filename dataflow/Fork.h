// Fork: copies its one input sample to every output of its bus.
#pragma once

#include "dataflow/CircularBuffer.h"
#include "dataflow/CircularBufferBusT.h"
#include "dataflow/DFModel.h"

namespace TesselModelBuilder {

template <typename B>
class Fork : public DFModel {
public:
    B input;
    CircularBufferBusT<B> output;

    bool Run() override {
        if (output.m_iSize == 0) return true;
        const auto value = input[0];
        for (uint64_t k = 0; k < output.m_iSize; ++k) (*output.Get(k))[0] = value;
        return true;
    }
};

extern template class Fork<CircularBuffer<double>>;

}  // namespace TesselModelBuilder
