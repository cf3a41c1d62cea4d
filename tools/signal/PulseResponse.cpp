// PulseResponse: step through AMI_GetWave, differentiated.
#include "tools/signal/PulseResponse.h"

#include <algorithm>
#include <stdexcept>

#include "tools/signal/Fft.h"

namespace amihost {

std::vector<double> PulseResponse::Differentiate(const std::vector<double>& step, size_t lead) {
    if (lead < 1 || lead >= step.size()) throw std::invalid_argument("step onset outside the step response");
    std::vector<double> h(step.size() - lead);
    for (size_t n = 0; n < h.size(); ++n) h[n] = step[lead + n] - step[lead + n - 1];
    return h;
}

std::vector<double> PulseResponse::Combine(const std::vector<double>& modelImpulse,
                                           const std::vector<double>& channelPulse, size_t length) {
    std::vector<double> p = Fft::Convolve(modelImpulse, channelPulse);
    p.resize(length, 0.0);
    return p;
}

}  // namespace amihost
