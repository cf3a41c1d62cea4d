// ModelRun: one model instance driven the way a simulator drives it:
// AMI_Init with the parameter string, the whole waveform through
// AMI_GetWave in blocks, and AMI_Close in every case, also after a failure.
#pragma once

#include <atomic>
#include <cstddef>
#include <string>
#include <vector>

#include "tools/host/AmiLibrary.h"

namespace amihost {

struct RunSettings {
    std::string sParameters;        // AMI_parameters_in
    double dSampleInterval = 0.0;   // seconds
    double dBitTime = 0.0;          // seconds
    size_t nBlock = 4096;           // samples per AMI_GetWave call
    std::vector<double> vImpulse;   // impulse response handed to AMI_Init (one column, no aggressors)
    std::string sLabel;             // names the run in what a watchdog reports ("EQ 5")
};

struct RunResult {
    long iInitResult = 0;
    bool bHasMessage = false;       // AMI_Init set *msg
    std::string sMessage;           // its text
    bool bHasParametersOut = false; // AMI_Init set *AMI_parameters_out
    std::string sParametersOut;
    bool bImpulseChanged = false;   // AMI_Init wrote into the impulse response
    long iGetWaveResult = 1;        // 0 when any call failed (streaming stops there)
    size_t nGetWaveCalls = 0;
    size_t nClockTimes = 0;         // clock times reported before each -1 marker
    long iCloseResult = 0;          // -1 when AMI_Init handed out no handle to close
    std::vector<double> vOutput;    // the equalized waveform (input values past a failure)
    double dSeconds = 0.0;          // wall time of the whole run
};

class ModelRun {
public:
    // Runs `input` through a new instance of `lib`. progress, when given, is
    // advanced by the number of samples of each finished block.
    static RunResult Run(const AmiLibrary& lib, const RunSettings& settings, const std::vector<double>& input,
                         std::atomic<size_t>* progress = nullptr);
    // Output of one instance for the input 0 before sample `lead`, 1 from it
    // on, `length` samples in all: the step response. Throws
    // HostError(kInitFailed or kGetWaveFailed) with the model's message when a
    // call fails.
    static std::vector<double> Step(const AmiLibrary& lib, const RunSettings& settings, size_t lead, size_t length);
};

}  // namespace amihost
