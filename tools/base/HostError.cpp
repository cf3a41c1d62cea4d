// HostError: names of the host's failure kinds.
#include "tools/base/HostError.h"

namespace amihost {

const char* ExitCodeName(ExitCode code) {
    switch (code) {
        case ExitCode::kOk: return "ok";
        case ExitCode::kUsage: return "usage error";
        case ExitCode::kMissingLibrary: return "missing library";
        case ExitCode::kMissingSymbols: return "missing symbols";
        case ExitCode::kBadFile: return "bad file";
        case ExitCode::kBadParameter: return "bad parameter";
        case ExitCode::kInitFailed: return "AMI_Init failed";
        case ExitCode::kGetWaveFailed: return "AMI_GetWave failed";
        case ExitCode::kOutputFailed: return "cannot write output";
        case ExitCode::kNonFiniteOutput: return "non-finite output";
        case ExitCode::kModelCrashed: return "model crashed";
        case ExitCode::kModelHung: return "model hung";
    }
    return "error";
}

}  // namespace amihost
