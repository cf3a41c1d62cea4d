// Mux: passes BlockSize samples of the input selected by `control` through to
// its output; an out-of-range control is reported and produces nothing.
#pragma once

#include <cstdint>
#include <sstream>
#include <string>

#include "dataflow/CircularBuffer.h"
#include "dataflow/CircularBufferBusT.h"
#include "dataflow/DFErrorHandler.h"
#include "dataflow/DFModel.h"

namespace TesselModelBuilder {

template <typename B>
class Mux : public DFModel {
public:
    CircularBufferBusT<B> input;  // inputs numbered from 0
    B output;
    int32_t control = 0;          // selected input, copied in before each Run
    int32_t BlockSize = 1;        // samples per firing, at least 1

    bool Setup() override {
        if (BlockSize < 1) {
            DFErrorHandler::PostError(this, "BlockSize must be >= 1");
            return false;
        }
        const uint64_t block = static_cast<uint64_t>(BlockSize);
        output.SetRate(block);
        if (output.GetHistoryDepth() < block) output.SetHistoryDepth(block);
        for (uint64_t k = 0; k < input.m_iSize; ++k) {
            B* in = input.Get(k);
            in->SetRate(block);
            if (in->GetHistoryDepth() < block) in->SetHistoryDepth(block);
        }
        return true;
    }

    bool Run() override {
        const uint64_t n = input.m_iSize;
        if (control >= 0 && static_cast<uint64_t>(control) < n) {
            input.Get(static_cast<uint64_t>(control))
                ->Copy(0, &output, 0, static_cast<uint64_t>(BlockSize));
            return true;
        }
        const std::string message = ControlRangeMessage(control, n);
        DFErrorHandler::PostError(this, message.c_str());
        return false;
    }

    // The report for a control value outside [0, n-1]; with no inputs the upper
    // bound wraps to the largest 64-bit value on purpose.
    static std::string ControlRangeMessage(int32_t value, uint64_t n) {
        std::ostringstream text;
        text << "Control input signal value is equal to " << value << ".  There "
             << (n < 2 ? "is " : "are ") << n << (n < 2 ? " input" : " inputs")
             << " connected.  The valid control input range is [0," << (n - 1) << "].";
        return text.str();
    }
};

extern template class Mux<CircularBuffer<double>>;

}  // namespace TesselModelBuilder
