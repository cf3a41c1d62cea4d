// ExecutableCheck: the model library named by an Executable line, exercised
// the way a simulator would use it, in a child process so that a library
// that crashes or hangs cannot take the checker down.
//
// First the ELF header: its class must match the platform's bits, its
// machine x86 of that width; a library of another width than this checker's
// is left at that. Then, in the child: dlopen, the exports
// (AMI_Init and AMI_Close always, AMI_GetWave when GetWave_Exists is True),
// AMI_Init with the .ami defaults (must return 1), a unit step of 32768
// samples through AMI_GetWave (must return 1 and settle), AMI_Close (must
// return 1). The child runs in a Sandbox (its limits given by the caller)
// and reports each stage through a pipe; a child that dies, exceeds a limit
// or does not finish within the time limit is reported with the stage it
// was in, and what it printed is shown escaped and capped.
#pragma once

#include <string>
#include <vector>

#include "tools/base/Sandbox.h"
#include "tools/ibischeck/IbsRules.h"
#include "tools/ibis/Report.h"

namespace ibischeck {

class ExecutableCheck {
public:
    // Samples of the step response; the last eighth must have settled.
    static const int kStepSamples = 32768;

    // parameters: the AMI_parameters_in text built from the .ami defaults.
    // Returns how the library was isolated when it was run, "" when it was not.
    static std::string Run(const ExecutableLine& e, const std::string& parameters, bool getWaveExists,
                           const amihost::SandboxLimits& limits, const std::string& shown, Report& report);

    // "" when the ELF header's class is the platform's bits and its machine
    // x86 of that width; otherwise the reason.
    static std::string ElfProblem(const std::string& path, int bits);

    // True when every sample of the last eighth of y lies within 1 % of the
    // largest magnitude of y around the final value, and all are finite.
    static bool Settles(const std::vector<double>& y);
};

}  // namespace ibischeck
