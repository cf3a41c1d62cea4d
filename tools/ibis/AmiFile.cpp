// AmiFile: .ami parameter definitions from the parsed parameter tree.
#include "tools/ibis/AmiFile.h"
#include "tools/base/InputFile.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <sstream>

#include "amiparams/IbisParser/cmn.h"
#include "amiparams/ParsedTree.h"
#include "tools/base/HostError.h"

namespace amihost {

namespace {

const char* ParseFailure(int code) {
    switch (code) {
        case 1: return "unbalanced parentheses";
        case 2: return "it does not start with \"(\"";
        case 3: return "the outermost group is not a branch of parameters";
        case 4: return "out of memory";
        case 5: return "more than one top-level group";
        case 6: return "a \")\" closes a group that was never opened";
        case 7: return "a name outside any group";
        case 8: return "malformed nesting";
        default: return "unknown parser failure";
    }
}

// Deepest group nesting of the text, counted outside double quotes.
size_t NestingDepth(const std::string& text) {
    size_t depth = 0, deepest = 0;
    bool quoted = false;
    for (char c : text) {
        if (c == '"') quoted = !quoted;
        if (quoted) continue;
        if (c == '(') deepest = std::max(deepest, ++depth);
        if (c == ')' && depth > 0) --depth;
    }
    return deepest;
}

std::string Unquote(const std::string& s) {
    if (s.size() >= 2 && s.front() == '"' && s.back() == '"') return s.substr(1, s.size() - 2);
    return s;
}

bool IsFormatName(const std::string& name) {
    static const char* const kFormats[] = {"Value", "Range", "List", "Increment", "Steps",
                                           "Corner", "Table", "Gaussian", "Dual-Dirac", "DjRj"};
    for (const char* f : kFormats)
        if (name == f) return true;
    return false;
}

bool HasLeafChild(const BRANCH_STRUCT* b) {
    for (int i = 0; i < b->nChildren; ++i)
        if (b->pChildren[i].eKind == PTREE_KIND_LEAF && b->pChildren[i].pData != nullptr) return true;
    return false;
}

AmiParameter ReadParameter(const BRANCH_STRUCT* b, const std::vector<std::string>& path) {
    AmiParameter p;
    p.vPath = path;
    for (size_t i = 0; i < path.size(); ++i) p.sPath += (i ? "." : "") + path[i];
    for (int i = 0; i < b->nChildren; ++i) {
        const NODE_ENTRY& e = b->pChildren[i];
        if (e.eKind != PTREE_KIND_LEAF || e.pData == nullptr) continue;
        const LEAF_STRUCT* leaf = static_cast<const LEAF_STRUCT*>(e.pData);
        const std::string name = leaf->pszName;
        std::vector<std::string> values;
        for (int v = 0; v < leaf->nValues; ++v) values.emplace_back(leaf->pValues[v].pszValue);
        if (values.empty()) continue;
        if (name == "Usage") {
            p.sUsage = values[0];
        } else if (name == "Type") {
            p.sType = values[0];
        } else if (name == "Default") {
            p.sDefault = values[0];
        } else if (name == "Description") {
            std::string text;
            for (size_t v = 0; v < values.size(); ++v) text += (v ? " " : "") + values[v];
            p.sDescription = Unquote(text);
        } else if (name == "Format") {
            p.sFormat = values[0];
            p.vFormat.assign(values.begin() + 1, values.end());
        } else if (IsFormatName(name)) {
            p.sFormat = name;
            p.vFormat = values;
        }
    }
    // Without a Default leaf a simulator takes the format's typical value:
    // the only value of Value, the first of Range, Increment, Steps, Corner
    // and List.
    if (p.sDefault.empty() && !p.vFormat.empty()) p.sDefault = p.vFormat[0];
    return p;
}

void ReadSection(const BRANCH_STRUCT* b, std::vector<std::string>& path, std::vector<AmiParameter>& out) {
    for (int i = 0; i < b->nChildren; ++i) {
        const NODE_ENTRY& e = b->pChildren[i];
        if (e.eKind != PTREE_KIND_BRANCH || e.pData == nullptr) continue;
        const BRANCH_STRUCT* child = static_cast<const BRANCH_STRUCT*>(e.pData);
        path.emplace_back(child->pszName);
        if (HasLeafChild(child))
            out.push_back(ReadParameter(child, path));
        else
            ReadSection(child, path, out);
        path.pop_back();
    }
}

}  // namespace

std::string AmiFile::Clean(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    bool quoted = false;
    bool blank = false;  // a whitespace run outside quotes is pending
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (!quoted && c == '|') {
            while (i < text.size() && text[i] != '\n') ++i;
            blank = true;
            continue;
        }
        if (!quoted && std::isspace(static_cast<unsigned char>(c))) {
            blank = true;
            continue;
        }
        if (blank && !out.empty()) out += ' ';
        blank = false;
        if (c == '"') quoted = !quoted;
        out += c;
    }
    return out;
}

size_t AmiFile::LongestBlankRun(const std::string& text) {
    size_t run = 0, longest = 0;
    for (char c : text) longest = std::max(longest, run = CMN_IsWhitespace(c) ? run + 1 : 0);
    return longest;
}

AmiFile AmiFile::Load(const std::string& path) {
    std::string text, problem;
    if (!ReadInputFile(path, text, problem)) throw HostError(ExitCode::kBadFile, ".ami file " + path + " " + problem);
    return Parse(text, path);
}

AmiFile AmiFile::Parse(const std::string& text, const std::string& origin) {
    const std::string clean = Clean(text);
    // Parameter groups are read recursively: a bound on the depth is a bound
    // on the stack, far beyond what any model's file needs.
    if (NestingDepth(clean) > kMaxNesting)
        throw HostError(ExitCode::kBadFile, origin + " is not a valid .ami file: groups are nested deeper than " +
                                                std::to_string(kMaxNesting) + " levels");
    // Whitespace is kept inside quotes; the parser ends the process on a run
    // longer than a line (the model's own guard), so say so instead.
    const size_t longest = LongestBlankRun(clean);
    if (longest > kMaxBlankRun)
        throw HostError(ExitCode::kBadFile, origin + " is not a valid .ami file: a quoted text holds " +
                                                std::to_string(longest) + " blanks in a row, more than the " +
                                                std::to_string(kMaxBlankRun) + " the parser reads");
    PTREE tree = nullptr;
    const int code = GetParsedTree(clean.c_str(), &tree);
    if (code != 0) throw HostError(ExitCode::kBadFile, origin + " is not a valid .ami file: " + ParseFailure(code));

    AmiFile f;
    std::string problem;
    const NODE_ENTRY* root = tree->pNodes != nullptr && tree->nNodes > 0 ? &tree->pNodes[0] : nullptr;
    if (root == nullptr || root->pData == nullptr || root->eKind != PTREE_KIND_BRANCH) {
        problem = "it holds no parameter tree";
    } else {
        const BRANCH_STRUCT* b = static_cast<const BRANCH_STRUCT*>(root->pData);
        f.m_sRoot = b->pszName;
        bool hasReserved = false;
        for (int i = 0; i < b->nChildren; ++i) {
            const NODE_ENTRY& e = b->pChildren[i];
            if (e.pData == nullptr) continue;
            if (e.eKind == PTREE_KIND_LEAF) {
                const LEAF_STRUCT* leaf = static_cast<const LEAF_STRUCT*>(e.pData);
                if (std::string(leaf->pszName) == "Description" && leaf->nValues > 0)
                    f.m_sDescription = Unquote(leaf->pValues[0].pszValue);
                continue;
            }
            const BRANCH_STRUCT* section = static_cast<const BRANCH_STRUCT*>(e.pData);
            std::vector<std::string> path;
            if (std::string(section->pszName) == "Reserved_Parameters") {
                hasReserved = true;
                ReadSection(section, path, f.m_vReserved);
            } else if (std::string(section->pszName) == "Model_Specific") {
                ReadSection(section, path, f.m_vModelSpecific);
            }
        }
        if (!hasReserved) problem = "it has no Reserved_Parameters section";
        for (const AmiParameter& p : f.m_vModelSpecific) {
            if (!problem.empty()) break;
            if (p.sUsage.empty() || p.sType.empty())
                problem = "parameter " + p.sPath + " lacks its Usage or Type";
            else if (p.IsInput() && p.sDefault.empty())
                problem = "parameter " + p.sPath + " has no default value";
        }
    }
    FreeParsedTree(&tree);
    if (!problem.empty()) throw HostError(ExitCode::kBadFile, origin + " is not a valid .ami file: " + problem);
    return f;
}

const AmiParameter* AmiFile::Find(const std::string& name) const {
    const AmiParameter* byLastName = nullptr;
    int matches = 0;
    for (const AmiParameter& p : m_vModelSpecific) {
        if (p.sPath == name) return &p;
        if (p.vPath.back() == name) {
            byLastName = &p;
            ++matches;
        }
    }
    return matches == 1 ? byLastName : nullptr;
}

const AmiParameter* AmiFile::FindReserved(const std::string& name) const {
    for (const AmiParameter& p : m_vReserved)
        if (p.sPath == name) return &p;
    return nullptr;
}

}  // namespace amihost
