// ParameterTextCheck: one parameter text through the tree parser and the
// typed lookup, checking the properties every text must keep whatever it
// holds. The parser fuzz harness calls it on each input; the regression
// replay calls it on every saved input. A broken property aborts with a
// line saying which.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "amiparams/ParamParser.h"
#include "amiparams/ParsedTree.h"

namespace kv2_fuzz {

[[noreturn]] inline void TextFailure(const char* what) {
    fprintf(stderr, "parameter text check failed: %s\n", what);
    abort();
}

// Longest dotted path looked up: the lookup recurses once per level of the
// path, and a host's paths are short.
constexpr size_t kMaxLookupPath = 1024;

inline bool IsBlank(char c) {
    const signed char b = static_cast<signed char>(c);
    return b == ' ' || (b >= '\t' && b <= '\r');
}

// Full dotted names of the leaves reachable from the root, walked without
// recursion (a text may nest thousands of levels deep).
inline std::vector<std::string> ReachableLeafPaths(const TREE& tree) {
    std::vector<std::string> paths;
    const BRANCH_STRUCT* root = static_cast<const BRANCH_STRUCT*>(tree.pNodes[0].pData);
    std::vector<std::pair<const BRANCH_STRUCT*, std::string>> open = {{root, root->pszName}};
    while (!open.empty()) {
        const auto [branch, full] = open.back();
        open.pop_back();
        if (full.size() > kMaxLookupPath) continue;
        for (int i = 0; i < branch->nChildren; ++i) {
            const NODE_ENTRY& child = branch->pChildren[i];
            if (child.eKind == PTREE_KIND_BRANCH) {
                // An empty full name is no prefix at all: a branch below a
                // nameless root is named by its own name alone.
                const char* name = static_cast<const BRANCH_STRUCT*>(child.pData)->pszName;
                open.emplace_back(static_cast<const BRANCH_STRUCT*>(child.pData),
                                  full.empty() ? std::string(name) : full + "." + name);
            } else {
                paths.push_back(full + "." + static_cast<const LEAF_STRUCT*>(child.pData)->pszName);
            }
        }
    }
    return paths;
}

// The flat list owns every record once; children arrays point at those
// records only, one level below their parent, each record at most once.
inline void CheckTreeShape(const TREE& tree, int expectedNodes) {
    if (tree.nNodes != expectedNodes) TextFailure("nNodes differs from the count of opening parentheses");
    if (tree.nNodes < 1 || tree.pNodes == nullptr) TextFailure("a parsed tree without entries");
    if (tree.pNodes[0].eKind != PTREE_KIND_BRANCH || tree.pNodes[0].pData == nullptr)
        TextFailure("entry 0 is not a branch");
    std::set<const void*> records;
    for (int i = 0; i < tree.nNodes; ++i) {
        const NODE_ENTRY& e = tree.pNodes[i];
        if (e.pData == nullptr) continue;
        if (e.eKind != PTREE_KIND_BRANCH && e.eKind != PTREE_KIND_LEAF) TextFailure("unknown entry kind");
        if (!records.insert(e.pData).second) TextFailure("a record listed twice");
    }
    std::set<const void*> attached;
    for (int i = 0; i < tree.nNodes; ++i) {
        const NODE_ENTRY& e = tree.pNodes[i];
        if (e.pData == nullptr || e.eKind != PTREE_KIND_BRANCH) continue;
        const BRANCH_STRUCT* b = static_cast<const BRANCH_STRUCT*>(e.pData);
        if (b->pszName == nullptr) TextFailure("branch without a name");
        if (b->nChildren < 0 || (b->nChildren > 0 && b->pChildren == nullptr)) TextFailure("bad children array");
        for (int k = 0; k < b->nChildren; ++k) {
            const NODE_ENTRY& c = b->pChildren[k];
            if (records.count(c.pData) == 0) TextFailure("a child outside the flat list");
            if (c.nLevel != e.nLevel + 1) TextFailure("a child not one level below its parent");
            if (!attached.insert(c.pData).second) TextFailure("a record attached twice");
        }
    }
    for (int i = 0; i < tree.nNodes; ++i) {
        const NODE_ENTRY& e = tree.pNodes[i];
        if (e.pData == nullptr || e.eKind != PTREE_KIND_LEAF) continue;
        const LEAF_STRUCT* leaf = static_cast<const LEAF_STRUCT*>(e.pData);
        if (leaf->pszName == nullptr) TextFailure("leaf without a name");
        if (leaf->nValues < 0 || (leaf->nValues > 0 && leaf->pValues == nullptr)) TextFailure("bad value array");
        for (int k = 0; k < leaf->nValues; ++k) {
            const char* v = leaf->pValues[k].pszValue;
            if (v == nullptr) TextFailure("value without text");
            const size_t n = strlen(v);
            if (n > 0 && IsBlank(v[n - 1])) TextFailure("value not trimmed");
        }
    }
}

// Every getter on a path, with what the answers must agree on.
inline void CheckLookups(TesselModelBuilder::AMI::ParamParser& parser, const char* path) {
    const LEAF_STRUCT* leaf = parser.GetLeaf(path);
    double d = -7.0;
    const bool gotDouble = parser.GetValue(d, path);
    int i = -7;
    const bool gotInt = parser.GetValue(i, path);
    bool flag = false;
    const bool gotBool = parser.GetValue(flag, path);
    char* s = nullptr;
    const bool gotString = parser.GetValue(s, path);
    if (leaf == nullptr && (gotDouble || gotInt || gotBool || gotString)) TextFailure("a getter found a missing leaf");
    if (gotInt && !gotDouble) TextFailure("int getter succeeded where the double getter failed");
    if (gotInt && static_cast<double>(i) != static_cast<double>(static_cast<long long>(d)))
        TextFailure("int getter does not truncate the double value");
    if (!gotDouble && d != -7.0) TextFailure("a failed getter changed its output");
    if (gotString) {
        const char* v = leaf->pValues[0].pszValue;
        const size_t n = strlen(v);
        if (strlen(s) != n - 2 || memcmp(s, v + 1, n - 2) != 0) TextFailure("string getter result");
    } else if (s != nullptr) {
        TextFailure("a failed string getter changed its output");
    }
    delete[] s;
    if ((gotDouble && (gotBool || gotString)) || (gotBool && gotString)) TextFailure("one value of two types");
}

// The whole check. `text` must be terminated.
inline void CheckParameterText(const char* text) {
    int count = -1;
    const char* start = text;
    while (IsBlank(*start)) ++start;
    const int balanced = ISValidBuffer(start, &count);
    if (balanced != 0 && balanced != 1) TextFailure("ISValidBuffer result");
    (void)ISValidBuffer(text, nullptr);
    (void)GetValueType(text);
    int stringType = -5;
    s_setStringType(&stringType, text);

    TREE sentinelRecord{};
    PTREE tree = &sentinelRecord;
    const int rc = GetParsedTree(text, &tree);
    if (rc < 0 || rc > 8) TextFailure("GetParsedTree code out of range");
    if (*start != '(' && rc != 2) TextFailure("text not starting with ( must give 2");
    if (*start == '(' && balanced == 0 && rc != 1) TextFailure("unbalanced text must give 1");
    if (rc != 0 && tree != &sentinelRecord) TextFailure("a failed parse changed *out");

    TesselModelBuilder::AMI::ParamParser parser(text);
    if (parser.m_bIsValid != (rc == 0)) TextFailure("ParamParser disagrees with GetParsedTree");
    for (const char* path : {"KV2_RX.SampleRate", "KV2_RX.EQ", "KV2_RX.SamplesPerBit", "KV2_RX.Corner", "", "."})
        CheckLookups(parser, path);

    if (rc == 0) {
        if (tree == nullptr || tree == &sentinelRecord) TextFailure("success without a tree");
        CheckTreeShape(*tree, count);
        for (const std::string& path : ReachableLeafPaths(*tree)) {
            if (path.size() > kMaxLookupPath) continue;
            if (parser.GetLeaf(path.c_str()) == nullptr) TextFailure("a reachable leaf is not found by its path");
            CheckLookups(parser, path.c_str());
        }
        FreeParsedTree(&tree);
        if (tree != nullptr) TextFailure("FreeParsedTree left the pointer set");
    }
    // The model keeps the lookup's tree for the life of the process; here it
    // is released so that leak checking sees everything else.
    FreeParsedTree(&parser.m_pOutTree);
}

}  // namespace kv2_fuzz
