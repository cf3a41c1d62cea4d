// PackageRules: package, differential pin, package model and board rules.
#include "tools/ibischeck/PackageRules.h"

#include <set>
#include <vector>


namespace ibischeck {


void PackageRules::CheckPackage(const IbisSection& s) {
    std::set<std::string> found;
    for (const IbisLine& l : s.vBody) {
        const std::vector<std::string> t = IbisLexer::SplitAssignment(l.sText);
        const std::string key = t.empty() ? "" : Lower(t[0]);
        if (key == "variable" || t.empty()) continue;
        if (key != "r_pkg" && key != "l_pkg" && key != "c_pkg") {
            Error(l.nLine, "[Package] does not take " + t[0]);
            continue;
        }
        found.insert(key);
        Tmm v;
        const std::string why = ParseTmm(t, 1, v);
        if (!why.empty()) Error(l.nLine, t[0] + " " + why);
        else if ((v.dMin && *v.dMin > v.dTyp) || (v.dMax && *v.dMax < v.dTyp))
            Error(l.nLine, t[0] + " must satisfy min <= typ <= max");
    }
    for (const char* k : {"R_pkg", "L_pkg", "C_pkg"})
        if (found.count(Lower(k)) == 0) Error(s.nLine, std::string("[Package] has no ") + k);
}

void PackageRules::CheckDiffPins(const IbisSection& s, const std::map<std::string, int>& pins) {
    for (const IbisLine& l : s.vBody) {
        const std::vector<std::string>& t = l.vTokens;
        if (t.size() != 6) {
            Error(l.nLine, "[Diff Pin] row needs pin, inv_pin, vdiff, tdelay_typ, tdelay_min and tdelay_max");
            continue;
        }
        for (size_t i = 0; i < 2; ++i)
            if (pins.count(t[i]) == 0) Error(l.nLine, "[Diff Pin] pin " + t[i] + " is not in [Pin]");
        for (size_t i = 2; i < 6; ++i)
            if (!IbisNumber::IsNA(t[i]) && !IbisNumber::Parse(t[i]))
                Error(l.nLine, "[Diff Pin] " + t[i] + " is not a number");
    }
}

void PackageRules::CheckPackageModel(const IbisBlock& b) {
    const IbisSection& p = *b.pOpener;
    const std::string name = p.sArgs;
    CheckName("[Define Package Model]", name, 40, p.nLine);
    for (const char* k : {"Manufacturer", "OEM", "Number Of Pins", "Pin Numbers", "Model Data",
                          "Inductance Matrix", "Capacitance Matrix", "End Model Data", "End Package Model"})
        if (b.Find(IbisLexer::Canonical(k)) == nullptr)
            Error(p.nLine, "[Define Package Model] " + name + " has no [" + k + "]");
    for (const IbisSection* s : b.vMembers)
        if (s->sKeyword == "resistance matrix" || s->sKeyword == "inductance matrix" ||
            s->sKeyword == "capacitance matrix") {
            const std::string form = s->vArgs.empty() ? "" : s->vArgs[0];
            if (Lower(form) != "banded_matrix" && Lower(form) != "sparse_matrix" && Lower(form) != "full_matrix")
                Error(s->nLine, "[" + s->sWritten + "] must be Banded_matrix, Sparse_matrix or Full_matrix");
        }
    const IbisSection* count = b.Find("number of pins");
    const IbisSection* list = b.Find("pin numbers");
    if (count == nullptr || list == nullptr) return;
    size_t listed = 0;
    for (const IbisLine& l : list->vBody) {
        const std::string first = Lower(l.vTokens[0]);
        // Section descriptions (Len=, L=, Fork, Endfork) are not pins.
        if (l.sText.find('=') == std::string::npos && first != "fork" && first != "endfork") ++listed;
    }
    std::optional<double> n = count->vArgs.empty() ? std::nullopt : IbisNumber::Parse(count->vArgs[0]);
    if (!n || *n != static_cast<double>(listed))
        Error(count->nLine, "[Number Of Pins] " + count->sArgs + " does not match the " + std::to_string(listed) +
                                " pins of [Pin Numbers]");
}

void PackageRules::CheckBoard(const IbisBlock& b) {
    const IbisSection& p = *b.pOpener;
    const std::string name = p.sArgs;
    CheckName("[Begin Board Description]", name, 40, p.nLine);
    for (const char* k : {"Manufacturer", "Number Of Pins", "Pin List", "Path Description",
                          "Reference Designator Map", "End Board Description"})
        if (b.Find(IbisLexer::Canonical(k)) == nullptr)
            Error(p.nLine, "[Begin Board Description] " + name + " has no [" + k + "]");
    const IbisSection* count = b.Find("number of pins");
    const IbisSection* list = b.Find("pin list");
    if (count == nullptr || list == nullptr) return;
    std::optional<double> n = count->vArgs.empty() ? std::nullopt : IbisNumber::Parse(count->vArgs[0]);
    if (!n || *n != static_cast<double>(list->vBody.size()))
        Error(count->nLine, "[Number Of Pins] " + count->sArgs + " does not match the " +
                                std::to_string(list->vBody.size()) + " pins of [Pin List]");
}

}  // namespace ibischeck
