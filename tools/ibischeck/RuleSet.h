// RuleSet: what every group of keyword-file rules shares: the file's name
// in findings, the report they go to, and the blocks the file is cut into
// (an opening keyword such as [Model] with the sections that follow it).
#pragma once

#include <string>
#include <vector>

#include "tools/base/Text.h"
#include "tools/ibis/IbisLexer.h"
#include "tools/ibis/IbisNumber.h"
#include "tools/ibis/Report.h"

namespace ibischeck {

// The rules read with the IBIS text layer's names.
using amihost::Lower;
using ibis::IbisLexer;
using ibis::IbisLine;
using ibis::IbisNumber;
using ibis::IbisSection;
using ibis::ParseTmm;
using ibis::Report;
using ibis::Severity;
using ibis::Tmm;

struct IbisBlock {
    const ibis::IbisSection* pOpener;
    std::vector<const ibis::IbisSection*> vMembers;  // the sections after the opener

    // The first member with that canonical keyword, or null.
    const ibis::IbisSection* Find(const std::string& keyword) const {
        for (const ibis::IbisSection* s : vMembers)
            if (s->sKeyword == keyword) return s;
        return nullptr;
    }
};

class RuleSet {
protected:
    RuleSet(const std::string& shown, ibis::Report& report) : m_sShown(shown), m_rReport(report) {}

    void Error(int line, const std::string& m) { m_rReport.Error(m_sShown, line, m); }
    void Warning(int line, const std::string& m) { m_rReport.Warning(m_sShown, line, m); }
    // IBIS limits names: pins to 5 characters, most others to 40.
    void CheckName(const std::string& what, const std::string& name, size_t limit, int line) {
        if (name.size() > limit)
            Error(line, what + " name " + name + " is longer than " + std::to_string(limit) + " characters");
    }

    std::string m_sShown;
    ibis::Report& m_rReport;
};

}  // namespace ibischeck
