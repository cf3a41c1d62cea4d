// ParamParser: typed access to the AMI parameter text by dotted path.
#include "amiparams/ParamParser.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>
#include <strings.h>

namespace TesselModelBuilder {
namespace AMI {

namespace {

// First value of a leaf, or null when it has none.
const VALUE_STRUCT* FirstValue(const LEAF_STRUCT* leaf) {
    if (leaf == nullptr || leaf->nValues < 1 || leaf->pValues == nullptr) return nullptr;
    return &leaf->pValues[0];
}

// True when `path` continues below the branch named `full`: every leaf
// under it has a full name starting with full + ".".
bool PathEntersBranch(const char* path, const std::string& full) {
    return strncmp(path, full.c_str(), full.size()) == 0 && path[full.size()] == '.';
}

}  // namespace

ParamParser::ParamParser(const char* text) : m_bIsValid(false), m_pOutTree(nullptr) {
    if (text == nullptr) return;
    const size_t length = strlen(text);
    char* copy = new char[length + 1];
    memcpy(copy, text, length + 1);
    m_bIsValid = GetParsedTree(copy, &m_pOutTree) == 0;
    delete[] copy;
}

// The tree stays allocated until the process ends: the model's lifetime
// never outlasts it, and it is deliberately not handed to FreeParsedTree.
ParamParser::~ParamParser() {}

_tagLeafStruct* ParamParser::GetLeaf(const char* path) {
    if (m_pOutTree == nullptr || !m_bIsValid || m_pOutTree->pNodes == nullptr || path == nullptr) return nullptr;
    const NODE_ENTRY& root = m_pOutTree->pNodes[0];
    if (root.pData == nullptr || root.eKind != PTREE_KIND_BRANCH) return nullptr;
    return FindLeafWithName(static_cast<const BRANCH_STRUCT*>(root.pData), path, "");
}

_tagLeafStruct* ParamParser::FindLeafWithName(const _tagBranchStruct* branch, const char* path,
                                              const char* prefix) {
    if (path == nullptr) return nullptr;
    // Depth-first, children in document order, with the open branches on an
    // explicit stack: nameless branches (a "(" right after a "(") carry no
    // prefix, so the path alone cannot bound how deep a search may go.
    struct OpenBranch {
        const _tagBranchStruct* pBranch;
        std::string sFull;  // the branch's full dotted name
        int nNext;          // next child to visit
    };
    std::vector<OpenBranch> open;
    auto enter = [&](const _tagBranchStruct* b, const std::string& parentFull) {
        if (b == nullptr || b->nChildren < 1 || b->pChildren == nullptr) return;
        std::string full = parentFull.empty() ? std::string() : parentFull + ".";
        full += b->pszName != nullptr ? b->pszName : "";
        // Below a named branch every leaf's full name starts with its name
        // and a ".": nothing there can match a path that does not.
        if (!full.empty() && !PathEntersBranch(path, full)) return;
        open.push_back(OpenBranch{b, std::move(full), 0});
    };
    enter(branch, prefix != nullptr ? prefix : "");

    while (!open.empty()) {
        OpenBranch& top = open.back();
        if (top.nNext >= top.pBranch->nChildren) {
            open.pop_back();
            continue;
        }
        const NODE_ENTRY& child = top.pBranch->pChildren[top.nNext++];
        if (child.pData == nullptr) continue;
        if (child.eKind == PTREE_KIND_BRANCH) {
            const std::string parentFull = top.sFull;  // `top` moves when the stack grows
            enter(static_cast<const BRANCH_STRUCT*>(child.pData), parentFull);
        } else if (child.eKind == PTREE_KIND_LEAF) {
            LEAF_STRUCT* leaf = static_cast<LEAF_STRUCT*>(child.pData);
            const char* name = leaf->pszName != nullptr ? leaf->pszName : "";
            if (PathEntersBranch(path, top.sFull) && strcmp(path + top.sFull.size() + 1, name) == 0) return leaf;
        }
    }
    return nullptr;
}

bool ParamParser::IsParamLeafBranch(const _tagBranchStruct* branch) {
    return branch != nullptr && branch->nChildren > 0 && branch->pChildren != nullptr &&
           branch->pChildren[0].eKind == PTREE_KIND_LEAF;
}

bool ParamParser::GetValue(bool& out, const char* path) {
    const VALUE_STRUCT* value = FirstValue(GetLeaf(path));
    if (value == nullptr || value->eValueType != PTREE_VALUE_BOOLEAN) return false;
    out = strcasecmp(value->pszValue, "true") == 0;
    return true;
}

bool ParamParser::GetValue(double& out, const char* path) {
    const VALUE_STRUCT* value = FirstValue(GetLeaf(path));
    if (value == nullptr || (value->eValueType != PTREE_VALUE_INTEGER && value->eValueType != PTREE_VALUE_FLOAT))
        return false;
    out = strtod(value->pszValue, nullptr);
    return true;
}

bool ParamParser::GetValue(int& out, const char* path) {
    double value = 0;
    if (!GetValue(value, path)) return false;
    // Converting a double outside int's range (or NaN) is undefined, so such
    // values count as not readable as an int.
    if (!(value > -2147483649.0 && value < 2147483648.0)) return false;
    out = static_cast<int>(value);
    return true;
}

bool ParamParser::GetValue(char*& out, const char* path) {
    const VALUE_STRUCT* value = FirstValue(GetLeaf(path));
    if (value == nullptr || value->eValueType != PTREE_VALUE_STRING) return false;
    const size_t length = strlen(value->pszValue);
    // Stripping two characters needs two to strip.
    if (length < 2) return false;
    if (out != nullptr) delete[] out;
    out = new char[length - 1];
    memcpy(out, value->pszValue + 1, length - 2);
    out[length - 2] = '\0';
    return true;
}

}  // namespace AMI
}  // namespace TesselModelBuilder
