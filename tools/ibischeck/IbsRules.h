// IbsRules: the rules of the IBIS keyword files (.ibs, .pkg, .ebd).
//
// The file's sections are grouped into the header and the blocks opened by
// [Component], [Model Selector], [Model], [Submodel], [Define Package Model],
// [Begin Board Description] and the other top-level keywords; each group is
// checked for its required keywords, its tables and its names. Findings go
// to the report with the file's line numbers. The Executable lines of every
// [Algorithmic Model] are collected for the checks that need the files
// themselves.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "tools/ibis/IbisLexer.h"
#include "tools/ibis/Report.h"
#include "tools/ibischeck/ModelTables.h"
#include "tools/ibischeck/PackageRules.h"
#include "tools/ibischeck/RuleSet.h"

namespace ibischeck {


struct ExecutableLine {
    int nLine;
    std::string sModel;      // the [Model] it belongs to
    std::string sPlatform;   // platform_compiler_bits, e.g. Linux_gcc12_64
    int nBits;               // 32 or 64 from the platform token
    std::string sLibrary;    // path of the executable, resolved against the .ibs folder
    std::string sAmi;        // path of the .ami file, resolved likewise
};

class IbsRules : public RuleSet {
public:
    // path: the file as given (its folder resolves Executable files);
    // shown: the name used in findings.
    IbsRules(const std::string& path, const std::string& shown, Report& report);

    void Check(const std::vector<IbisSection>& sections);

    // Executable lines whose files both exist and whose platform is well formed.
    const std::vector<ExecutableLine>& Executables() const { return m_vExecutables; }

private:
    using Block = IbisBlock;

    void CheckHeader(const std::vector<IbisSection>& sections, const std::vector<const IbisSection*>& header);
    void CheckComponent(const Block& b);
    void CheckPins(const IbisSection& s, std::map<std::string, int>& pins);
    void CheckModelSelector(const Block& b);
    void CheckModel(const Block& b);
    void CheckAlgorithmicModel(const Block& b, size_t at);
    void CheckExternalModel(const Block& b, size_t at);
    void CheckAddSubmodel(const IbisSection& s);
    void CheckSubmodel(const Block& b);
    // The [End ...] keyword closing the section at `at`, if any follows it.
    bool Closed(const Block& b, size_t at, const std::string& end) const;


    std::string m_sPath, m_sFolder, m_sExtension;
    ModelTables m_tables;
    PackageRules m_packages;
    std::map<std::string, int> m_mModels;     // [Model] and [Model Selector] names, lower case
    std::map<std::string, int> m_mSubmodels;  // [Submodel] names, lower case
    std::set<std::string> m_sSelectors;       // [Model Selector] names, lower case
    std::vector<ExecutableLine> m_vExecutables;
};

}  // namespace ibischeck
