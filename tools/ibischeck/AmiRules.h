// AmiRules: the rules of an IBIS-AMI parameter file (.ami), read with the
// project's parameter-tree parser.
//
// The file must be one balanced group: a root named after the model holding
// Reserved_Parameters (with AMI_Version, Init_Returns_Impulse and
// GetWave_Exists, each Usage Info) and then Model_Specific. Every parameter
// needs a known Usage and Type and one format (Value, Range, List, Corner,
// Increment, Steps, ...) whose values, like its Default, read as its Type
// and agree with each other.
#pragma once

#include <string>
#include <unordered_map>

#include "tools/ibis/Report.h"

namespace ibischeck {

using ibis::Report;

class AmiRules {
public:
    AmiRules(const std::string& shown, Report& report) : m_sShown(shown), m_rReport(report) {}

    // True when the text parsed into a tree (the rules then ran over it).
    bool Check(const std::string& text);

private:
    void CheckParameter(const void* branch, const std::string& path, bool reserved);
    void CheckSection(const void* branch, const std::string& path, bool reserved);
    int LineOf(const std::string& name) const;
    void IndexNames();
    void Error(int line, const std::string& m) { m_rReport.Error(m_sShown, line, m); }
    void Warning(int line, const std::string& m) { m_rReport.Warning(m_sShown, line, m); }

    std::string m_sShown;
    Report& m_rReport;
    std::string m_sText;
    std::unordered_map<std::string, int> m_mFirstLine;  // name -> line of its first "(name"
};

}  // namespace ibischeck
