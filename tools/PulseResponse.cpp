// PulseResponse: step through AMI_GetWave, differentiated.
#include "tools/PulseResponse.h"

#include <algorithm>
#include <stdexcept>

#include "tools/Fft.h"
#include "tools/HostError.h"

namespace amihost {

std::vector<double> PulseResponse::ModelStep(const AmiLibrary& lib, const RunSettings& settings, size_t lead,
                                             size_t length) {
    std::vector<double> input(length, 1.0);
    std::fill(input.begin(), input.begin() + static_cast<long>(std::min(lead, length)), 0.0);
    RunResult r = ModelRun::Run(lib, settings, input);
    const std::string said = r.bHasMessage ? " (message: \"" + r.sMessage + "\")" : "";
    if (r.iInitResult == 0)
        throw HostError(ExitCode::kInitFailed, "AMI_Init failed on the step-response run of " + settings.sParameters + said);
    if (r.iGetWaveResult == 0)
        throw HostError(ExitCode::kGetWaveFailed, "AMI_GetWave failed on the step-response run of " + settings.sParameters);
    return std::move(r.vOutput);
}

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
