// HostError: a failure the host reports to its user, with the exit code that
// tells scripts which kind of failure it was.
#pragma once

#include <stdexcept>
#include <string>

namespace amihost {

// Process exit codes, one per kind of failure.
enum class ExitCode : int {
    kOk = 0,
    kUsage = 2,             // malformed command line
    kMissingLibrary = 3,    // the model library cannot be loaded
    kMissingSymbols = 4,    // the library lacks AMI_Init, AMI_GetWave or AMI_Close
    kBadFile = 5,           // an .ami or waveform file cannot be read or makes no sense
    kBadParameter = 6,      // a --set override or option value is not acceptable
    kInitFailed = 7,        // AMI_Init returned 0
    kGetWaveFailed = 8,     // AMI_GetWave returned 0
    kOutputFailed = 9,      // an output file cannot be written
    kNonFiniteOutput = 10,  // the model returned NaN or infinite samples
    kModelCrashed = 11,     // the model crashed or ended the process
    kModelHung = 12,        // a call into the model did not return within --call-timeout
};

// Name of the failure kind, as printed in front of the message.
const char* ExitCodeName(ExitCode code);

class HostError : public std::runtime_error {
public:
    HostError(ExitCode code, const std::string& message) : std::runtime_error(message), m_eCode(code) {}
    ExitCode Code() const { return m_eCode; }

private:
    ExitCode m_eCode;
};

}  // namespace amihost
