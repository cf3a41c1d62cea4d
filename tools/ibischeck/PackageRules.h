// PackageRules: the package side of an IBIS file: a component's [Package]
// and [Diff Pin] tables, a .pkg file's [Define Package Model] and an .ebd
// file's [Begin Board Description].
#pragma once

#include <map>
#include <string>

#include "tools/ibischeck/RuleSet.h"

namespace ibischeck {

class PackageRules : public RuleSet {
public:
    PackageRules(const std::string& shown, ibis::Report& report) : RuleSet(shown, report) {}

    void CheckPackage(const ibis::IbisSection& s);
    // pins: the component's [Pin] names with their lines.
    void CheckDiffPins(const ibis::IbisSection& s, const std::map<std::string, int>& pins);
    void CheckPackageModel(const IbisBlock& b);
    void CheckBoard(const IbisBlock& b);
};

}  // namespace ibischeck
