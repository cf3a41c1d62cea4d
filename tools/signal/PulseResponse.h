// PulseResponse: a model's linear response from its step response (which
// ModelRun::Step measures through AMI_GetWave), differentiated,
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


namespace amihost {

class PulseResponse {
public:
    // h[n] above, n = 0 .. step.size() - lead - 1 (lead >= 1).
    static std::vector<double> Differentiate(const std::vector<double>& step, size_t lead);
    // The first `length` samples of modelImpulse convolved with channelPulse.
    static std::vector<double> Combine(const std::vector<double>& modelImpulse,
                                       const std::vector<double>& channelPulse, size_t length);
};

}  // namespace amihost
