// Checker: one file checked end to end. An .ibs, .pkg or .ebd file goes
// through the keyword rules; each Executable line it names then has its .ami
// file checked and, when the library is built for this machine's platform
// (Linux, 64 bits), its library exercised. An .ami file alone gets the .ami
// rules.
#pragma once

#include <string>

#include "tools/base/Sandbox.h"
#include "tools/ibis/Report.h"

namespace ibischeck {

using ibis::Report;

struct CheckOptions {
    bool bRunExecutables = true;  // load and call the libraries
    amihost::SandboxLimits limits;  // of each library's child process
};

class Checker {
public:
    Checker(const CheckOptions& options, Report& report) : m_options(options), m_rReport(report) {}

    void CheckFile(const std::string& path);

private:
    void CheckAmi(const std::string& shown, const std::string& text);

    CheckOptions m_options;
    Report& m_rReport;
    bool m_bSaidHowLibrariesRun = false;
};

}  // namespace ibischeck
