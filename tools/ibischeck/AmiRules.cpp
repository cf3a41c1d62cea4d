// AmiRules: .ami syntax, sections, reserved parameters and parameter rules.
#include "tools/ibischeck/AmiRules.h"

#include <cstdlib>
#include <map>
#include <set>
#include <vector>

#include "amiparams/ParsedTree.h"
#include "tools/ibis/AmiFile.h"

namespace ibischeck {

namespace {

const std::set<std::string> kUsages = {"In", "Out", "InOut", "Info", "Dep"};
const std::set<std::string> kTypes = {"Float", "Integer", "UI", "String", "Boolean", "Tap"};
const std::set<std::string> kFormats = {"Value", "Range", "List", "Corner", "Increment", "Steps",
                                        "Table", "Gaussian", "Dual-Dirac", "DjRj"};

// Reserved parameters every file must carry, with their fixed Type.
const std::map<std::string, std::string> kRequired = {
    {"AMI_Version", "String"}, {"Init_Returns_Impulse", "Boolean"}, {"GetWave_Exists", "Boolean"}};

const std::set<std::string> kReservedNames = {
    "AMI_Version", "Init_Returns_Impulse", "GetWave_Exists", "Use_Init_Output", "Max_Init_Aggressors",
    "Ignore_Bits", "Resolve_Exists", "Model_Name", "Special_Param_Names", "Component_Name", "Signal_Name",
    "Supporting_Files", "DLL_Path", "DLL_ID", "Tx_Jitter", "Tx_DCD", "Tx_Rj", "Tx_Dj", "Tx_Sj",
    "Tx_Sj_Frequency", "Rx_DCD", "Rx_Rj", "Rx_Dj", "Rx_Sj", "Rx_Clock_PDF", "Rx_Clock_Recovery_Mean",
    "Rx_Clock_Recovery_Rj", "Rx_Clock_Recovery_Dj", "Rx_Clock_Recovery_Sj", "Rx_Clock_Recovery_DCD",
    "Rx_Receiver_Sensitivity", "Rx_Noise", "Rx_GaussianNoise", "Rx_UniformNoise", "Rx_Use_Clock_Input",
    "Rx_Decision_Time", "Modulation", "Modulation_Levels", "PAM_Thresholds", "PAM4_Mapping",
    "PAM4_UpperThreshold", "PAM4_CenterThreshold", "PAM4_LowerThreshold", "PAM4_UpperEyeOffset",
    "PAM4_CenterEyeOffset", "PAM4_LowerEyeOffset", "Repeater_Type", "BCI_Protocol", "BCI_ID",
    "BCI_State", "BCI_Message_Interval_UI", "BCI_Training_UI", "BCI_Training_Mode", "Ts4file", "Tx_V",
    "Tx_R", "Rx_R", "Tx_Impulse_Length", "Rx_Impulse_Length", "DC_Offset", "Tx_Pre_Emphasis_Mode"};

const char* ParseFailure(int code) {
    switch (code) {
        case 2: return "it does not start with \"(\"";
        case 3: return "the outermost group is not a branch of parameters";
        case 4: return "out of memory";
        case 6: return "a \")\" closes a group that was never opened";
        default: return "its groups do not nest";
    }
}

struct Leaf {
    std::string sName;
    std::vector<std::string> vValues;
};

std::vector<Leaf> Leaves(const BRANCH_STRUCT* b) {
    std::vector<Leaf> out;
    for (int i = 0; i < b->nChildren; ++i) {
        const NODE_ENTRY& e = b->pChildren[i];
        if (e.eKind != PTREE_KIND_LEAF || e.pData == nullptr) continue;
        const LEAF_STRUCT* l = static_cast<const LEAF_STRUCT*>(e.pData);
        Leaf leaf{l->pszName, {}};
        for (int v = 0; v < l->nValues; ++v) leaf.vValues.emplace_back(l->pValues[v].pszValue);
        out.push_back(leaf);
    }
    return out;
}

std::vector<const BRANCH_STRUCT*> Branches(const BRANCH_STRUCT* b) {
    std::vector<const BRANCH_STRUCT*> out;
    for (int i = 0; i < b->nChildren; ++i)
        if (b->pChildren[i].eKind == PTREE_KIND_BRANCH && b->pChildren[i].pData != nullptr)
            out.push_back(static_cast<const BRANCH_STRUCT*>(b->pChildren[i].pData));
    return out;
}

bool IsNumber(const std::string& s, bool integer) {
    if (s.empty() || s[0] == '"') return false;
    char* end = nullptr;
    if (integer) strtol(s.c_str(), &end, 10);
    else strtod(s.c_str(), &end);
    return *end == '\0';
}

bool ReadsAs(const std::string& type, const std::string& v) {
    if (type == "String") return v.size() >= 2 && v.front() == '"' && v.back() == '"';
    if (type == "Boolean") return v == "True" || v == "False";
    if (type == "Integer") return IsNumber(v, true);
    return IsNumber(v, false);
}

bool Numeric(const std::string& type) { return type != "String" && type != "Boolean"; }

}  // namespace

int AmiRules::LineOf(const std::string& name) const {
    const auto found = m_mFirstLine.find(name);
    return found == m_mFirstLine.end() ? 1 : found->second;
}

void AmiRules::IndexNames() {
    // The first line of every "(name", in one pass: looking each name up in
    // the whole text would make the rules quadratic in the file's size.
    m_mFirstLine.clear();
    int line = 1;
    const std::string& t = m_sText;
    for (size_t i = 0; i < t.size(); ++i) {
        if (t[i] == '\n') ++line;
        if (t[i] != '(') continue;
        size_t j = i + 1;
        while (j < t.size() && (t[j] == ' ' || t[j] == '\t')) ++j;
        size_t k = j;
        while (k < t.size() && t[k] != ' ' && t[k] != '\t' && t[k] != '\r' && t[k] != '\n' && t[k] != '(' && t[k] != ')')
            ++k;
        if (k > j) m_mFirstLine.emplace(t.substr(j, k - j), line);
    }
}

bool AmiRules::Check(const std::string& text) {
    m_sText = text;
    IndexNames();
    // Balance and the single root, with line numbers, before the parser
    // (which knows no lines) sees the text.
    int depth = 0, line = 1, roots = 0, openLine = 0, quoteLine = 0;
    bool quoted = false;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '\n') ++line;
        if (quoted) {
            quoted = c != '"';
            continue;
        }
        if (c == '"') {
            quoted = true;
            quoteLine = line;
        } else if (c == '|') {
            while (i + 1 < text.size() && text[i + 1] != '\n') ++i;
        } else if (c == '(') {
            if (depth == 0 && ++roots == 2) Error(line, "a second top-level group; the file must hold one root");
            if (depth++ == 0) openLine = line;
        } else if (c == ')') {
            if (--depth < 0) {
                Error(line, "\")\" without a matching \"(\"");
                return false;
            }
        } else if (depth == 0 && c != ' ' && c != '\t' && c != '\r' && c != '\n') {
            Error(line, "text outside the root group");
            return false;
        }
    }
    if (depth > 0 || quoted) {
        if (quoted) Error(quoteLine, "a double quote is never closed");
        else Error(openLine, "the group opened here is never closed");
        return false;
    }
    if (roots != 1) {
        if (roots == 0) Error(1, "no parameter tree in the file");
        return false;
    }

    PTREE tree = nullptr;
    const int code = GetParsedTree(amihost::AmiFile::Clean(text).c_str(), &tree);
    if (code != 0) {
        Error(1, std::string("the file does not parse: ") + ParseFailure(code));
        return false;
    }
    const BRANCH_STRUCT* root = static_cast<const BRANCH_STRUCT*>(tree->pNodes[0].pData);
    int reservedAt = -1, specificAt = -1, at = 0;
    for (const BRANCH_STRUCT* b : Branches(root)) {
        const std::string name = b->pszName;
        if (name == "Reserved_Parameters") {
            reservedAt = at;
            CheckSection(b, "", true);
        } else if (name == "Model_Specific") {
            specificAt = at;
            CheckSection(b, "", false);
        } else {
            Warning(LineOf(name), "unknown section " + name + " under the root " + root->pszName);
        }
        ++at;
    }
    if (reservedAt < 0) Error(1, "no Reserved_Parameters section");
    if (reservedAt > specificAt && specificAt >= 0)
        Error(LineOf("Reserved_Parameters"), "Reserved_Parameters must come before Model_Specific");
    for (const Leaf& l : Leaves(root))
        if (l.sName != "Description") Warning(LineOf(l.sName), "unknown entry " + l.sName + " under the root");
    FreeParsedTree(&tree);
    return true;
}

void AmiRules::CheckSection(const void* branch, const std::string& path, bool reserved) {
    const BRANCH_STRUCT* b = static_cast<const BRANCH_STRUCT*>(branch);
    std::set<std::string> seen;
    for (const BRANCH_STRUCT* child : Branches(b)) {
        const std::string name = child->pszName;
        seen.insert(name);
        const std::string full = path.empty() ? name : path + "." + name;
        // A group of parameters may carry its own Description; anything else
        // beside sub-groups makes it a parameter.
        bool grouping = true;
        for (const Leaf& l : Leaves(child)) grouping = grouping && l.sName == "Description";
        if (grouping && (Leaves(child).empty() || !Branches(child).empty())) CheckSection(child, full, reserved);
        else CheckParameter(child, full, reserved);
    }
    if (!reserved || !path.empty()) return;
    for (const auto& r : kRequired)
        if (seen.count(r.first) == 0)
            Error(LineOf("Reserved_Parameters"), "required reserved parameter " + r.first + " is missing");
}

void AmiRules::CheckParameter(const void* branch, const std::string& path, bool reserved) {
    const BRANCH_STRUCT* b = static_cast<const BRANCH_STRUCT*>(branch);
    const std::string name = b->pszName;
    const int line = LineOf(name);
    const std::string p = "parameter " + path;
    if (reserved && kReservedNames.count(name) == 0) Warning(line, "unknown reserved parameter " + name);

    std::map<std::string, std::vector<std::string>> leaf;
    std::vector<std::string> formats;
    for (const Leaf& l : Leaves(b)) {
        if (l.sName == "Format" && !l.vValues.empty()) {
            formats.push_back(l.vValues[0]);
            leaf[l.vValues[0]].assign(l.vValues.begin() + 1, l.vValues.end());
            if (kFormats.count(l.vValues[0]) == 0) Error(line, p + ": Format " + l.vValues[0] + " is not a known format");
            continue;
        }
        if (kFormats.count(l.sName) != 0) formats.push_back(l.sName);
        leaf[l.sName] = l.vValues;
    }
    for (const BRANCH_STRUCT* sub : Branches(b))
        if (kFormats.count(sub->pszName) != 0) formats.push_back(sub->pszName);

    const std::string usage = leaf.count("Usage") && !leaf["Usage"].empty() ? leaf["Usage"][0] : "";
    const std::string type = leaf.count("Type") && !leaf["Type"].empty() ? leaf["Type"][0] : "";
    if (usage.empty()) Error(line, p + " has no Usage");
    else if (kUsages.count(usage) == 0) Error(line, p + ": Usage " + usage + " is not In, Out, InOut, Info or Dep");
    if (type.empty()) Error(line, p + " has no Type");
    else if (kTypes.count(type) == 0)
        Error(line, p + ": Type " + type + " is not Float, Integer, UI, String, Boolean or Tap");
    if (reserved && kRequired.count(name) != 0) {
        if (!usage.empty() && usage != "Info") Error(line, p + " must have Usage Info");
        if (!type.empty() && type != kRequired.at(name)) Error(line, p + " must have Type " + kRequired.at(name));
    }
    if (formats.empty()) {
        Error(line, p + " has no Value, Range, List, Corner, Increment or Steps");
        return;
    }
    if (formats.size() > 1) Error(line, p + " has more than one format (" + formats[0] + ", " + formats[1] + ")");
    const bool hasDefault = leaf.count("Default") != 0;
    if (hasDefault && leaf.count("Value") != 0) Error(line, p + ": Value and Default are exclusive");
    if (hasDefault && usage == "Out") Error(line, p + ": Usage Out takes no Default");
    if (kTypes.count(type) == 0) return;

    const std::string format = formats[0];
    const std::vector<std::string> values = leaf[format];
    for (const std::string& v : values)
        if (format != "Table" && !ReadsAs(type, v))
            Error(line, p + ": " + (format == "Value" ? "Value " : format + " value ") + v + " is not of Type " + type);
    const std::string deflt = hasDefault && !leaf["Default"].empty() ? leaf["Default"][0] : "";
    if (hasDefault && leaf["Default"].size() != 1) Error(line, p + ": Default takes one value");
    else if (hasDefault && !ReadsAs(type, deflt)) Error(line, p + ": Default " + deflt + " is not of Type " + type);

    static const std::map<std::string, size_t> kCounts = {{"Range", 3}, {"Corner", 3}, {"Increment", 4}, {"Steps", 4}};
    if (kCounts.count(format) != 0) {
        if (values.size() != kCounts.at(format)) {
            Error(line, p + ": " + format + " takes " + std::to_string(kCounts.at(format)) + " values, not " +
                            std::to_string(values.size()));
            return;
        }
        if (format != "Corner" && !Numeric(type)) {
            Error(line, p + ": " + format + " does not apply to Type " + type);
            return;
        }
    }
    if ((format == "Value" && values.size() != 1) || values.empty())
        Error(line, p + ": " + format + " needs " + (format == "Value" ? "exactly one value" : "values"));
    for (const std::string& v : values)
        if (!ReadsAs(type, v)) return;  // already reported; no comparisons on unreadable values
    if (format == "Range" || format == "Increment" || format == "Steps") {
        const double typ = strtod(values[0].c_str(), nullptr), lo = strtod(values[1].c_str(), nullptr),
                     hi = strtod(values[2].c_str(), nullptr);
        if (lo > hi) Error(line, p + ": " + format + " min " + values[1] + " is above max " + values[2]);
        else if (typ < lo || typ > hi)
            Error(line, p + ": " + format + " typ " + values[0] + " is outside " + values[1] + " to " + values[2]);
        if (format != "Range" && strtod(values[3].c_str(), nullptr) <= 0)
            Error(line, p + ": " + format + " step " + values[3] + " must be positive");
        if (hasDefault && ReadsAs(type, deflt)) {
            const double d = strtod(deflt.c_str(), nullptr);
            if (d < lo || d > hi) Error(line, p + ": Default " + deflt + " is outside " + values[1] + " to " + values[2]);
        }
    }
    if (format == "List" && hasDefault && ReadsAs(type, deflt)) {
        bool member = false;
        for (const std::string& v : values)
            member = member || v == deflt || (Numeric(type) && strtod(v.c_str(), nullptr) == strtod(deflt.c_str(), nullptr));
        if (!member) Error(line, p + ": Default " + deflt + " is not in the List");
    }
}

}  // namespace ibischeck
