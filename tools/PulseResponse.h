// PulseResponse: a model's linear response measured the only way a
// time-domain model allows, through AMI_GetWave: a unit step is streamed
// through a fresh instance and the output differentiated,
//
//     h[n] = y[lead + n] - y[lead + n - 1],
//
// which is the response to a one-sample unit pulse when the model is linear
// and time-invariant. Convolved with the channel's response to a one-UI
// pulse it gives the pulse response of channel and receiver together, the
// input of the statistical eye.
#pragma once

#include <cstddef>
#include <vector>

#include "tools/AmiLibrary.h"
#include "tools/ModelRun.h"

namespace amihost {

class PulseResponse {
public:
    // Output of one instance for the input 0 before sample `lead`, 1 from it
    // on, `length` samples in all. Throws HostError(kInitFailed or
    // kGetWaveFailed) with the model's message when a call fails.
    static std::vector<double> ModelStep(const AmiLibrary& lib, const RunSettings& settings, size_t lead,
                                         size_t length);
    // h[n] above, n = 0 .. step.size() - lead - 1 (lead >= 1).
    static std::vector<double> Differentiate(const std::vector<double>& step, size_t lead);
    // The first `length` samples of modelImpulse convolved with channelPulse.
    static std::vector<double> Combine(const std::vector<double>& modelImpulse,
                                       const std::vector<double>& channelPulse, size_t length);
};

}  // namespace amihost
