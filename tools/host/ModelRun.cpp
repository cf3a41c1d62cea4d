// ModelRun: the AMI_Init / AMI_GetWave / AMI_Close sequence of one instance.
#include "tools/host/ModelRun.h"

#include "tools/base/HostError.h"
#include "tools/host/ModelWatch.h"

#include <algorithm>
#include <chrono>
#include <cstring>

namespace amihost {

RunResult ModelRun::Run(const AmiLibrary& lib, const RunSettings& settings, const std::vector<double>& input,
                        std::atomic<size_t>* progress) {
    const auto start = std::chrono::steady_clock::now();
    RunResult r;

    std::vector<double> impulse = settings.vImpulse;
    if (impulse.empty()) impulse.push_back(1.0);
    const std::vector<double> impulseBefore = impulse;
    // The entry point takes a writable string; hand it a private copy.
    std::vector<char> params(settings.sParameters.begin(), settings.sParameters.end());
    params.push_back('\0');
    char* paramsOut = nullptr;
    char* msg = nullptr;
    void* memory = nullptr;

    {
        ModelWatch::Call call(ModelWatch::kInit, settings.sLabel);
        r.iInitResult = lib.Init(impulse.data(), static_cast<long>(impulse.size()), 0, settings.dSampleInterval,
                             settings.dBitTime, params.data(), &paramsOut, &memory, &msg);
    }
    // Both texts stay the model's until AMI_Close: copy them now.
    if (msg != nullptr) {
        r.bHasMessage = true;
        r.sMessage = msg;
    }
    if (paramsOut != nullptr) {
        r.bHasParametersOut = true;
        r.sParametersOut = paramsOut;
    }
    r.bImpulseChanged = std::memcmp(impulse.data(), impulseBefore.data(), impulse.size() * sizeof(double)) != 0;

    r.vOutput = input;
    if (r.iInitResult != 0) {
        const size_t block = std::max<size_t>(1, settings.nBlock);
        // The standard sizes clock_times by the bits in a block; a model may
        // not end the list, so leave room and a marker of our own.
        std::vector<double> clockTimes(block + 2);
        for (size_t at = 0; at < r.vOutput.size(); at += block) {
            const size_t n = std::min(block, r.vOutput.size() - at);
            std::fill(clockTimes.begin(), clockTimes.end(), -1.0);
            char* waveParamsOut = nullptr;
            ModelWatch::Call call(ModelWatch::kGetWave, settings.sLabel);
            const long ok = lib.GetWave(r.vOutput.data() + at, static_cast<long>(n), clockTimes.data(),
                                        &waveParamsOut, memory);
            ++r.nGetWaveCalls;
            for (size_t i = 0; i < clockTimes.size() && clockTimes[i] != -1.0; ++i) ++r.nClockTimes;
            if (ok == 0) {
                r.iGetWaveResult = 0;
                break;
            }
            if (progress != nullptr) progress->fetch_add(n, std::memory_order_relaxed);
        }
    }
    // A null handle means the model made no instance: nothing to close.
    if (memory != nullptr) {
        ModelWatch::Call call(ModelWatch::kClose, settings.sLabel);
        r.iCloseResult = lib.Close(memory);
    } else {
        r.iCloseResult = -1;
    }
    r.dSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return r;
}

std::vector<double> ModelRun::Step(const AmiLibrary& lib, const RunSettings& settings, size_t lead,
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

}  // namespace amihost
