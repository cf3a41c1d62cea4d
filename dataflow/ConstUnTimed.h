// ConstUnTimedBase / ConstUnTimed: a source that emits a constant on every
// firing, after m_iInitialDelay leading firings that emit zero.
#pragma once

#include <cstdint>

#include "dataflow/CircularBuffer.h"
#include "dataflow/DFErrorHandler.h"
#include "dataflow/DFModel.h"

namespace TesselModelBuilder {

template <typename T, typename B>
class ConstUnTimedBase : public DFModel {
public:
    B output;
    T Value = T(0);
    int32_t m_iInitialDelay = 0;  // leading firings that emit zero, >= 0
    uint64_t iSampleCount = 0;    // firings since Initialize

    bool Initialize() override {
        iSampleCount = 0;
        return UpdateDynamicParameters();
    }

    bool Run() override {
        // The delay is compared sign-extended, as an unsigned 64-bit count.
        if (iSampleCount < static_cast<uint64_t>(static_cast<int64_t>(m_iInitialDelay)))
            SetOutputToZero();
        else
            output[0] = Value;
        ++iSampleCount;
        return true;
    }

    bool UpdateDynamicParameters() override {
        if (m_iInitialDelay < 0) {
            DFErrorHandler::PostError(this, "InitialDelay must be >= 0");
            return false;
        }
        return true;
    }

    ~ConstUnTimedBase() override {}
    virtual void SetOutputToZero() = 0;
};

template <typename T>
class ConstUnTimed : public ConstUnTimedBase<T, CircularBuffer<T>> {
public:
    void SetOutputToZero() override { this->output[0] = T(0); }
};

extern template class ConstUnTimedBase<double, CircularBuffer<double>>;
extern template class ConstUnTimed<double>;

}  // namespace TesselModelBuilder
