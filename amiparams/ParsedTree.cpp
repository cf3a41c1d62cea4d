// ParsedTree: the AMI parameter text turned into a tree of branches and leaves.
//
// Parsing runs in three stages over a private copy of the text:
//   1. ISValidBuffer checks the parentheses and counts the "(" that bound the
//      number of nodes;
//   2. ScanForNodes walks the text once, left to right, and fills the flat
//      list with branches and leaves, each carrying its nesting level;
//   3. the link step lays the tree over the flat list with a stack of open
//      branches: an entry becomes a child of the nearest open branch one
//      level above it.
// The nesting level is tracked as a depth that grows by two per level: one
// when a "(" is consumed and one when the name after it turns out to open a
// branch, so a branch sits at depth / 2 and a leaf at (depth + 1) / 2.
#include "amiparams/ParsedTree.h"

#include "amiparams/IbisParser/cmn.h"

#include <cstdlib>
#include <cstring>

namespace {

// Internal result of one scan pass: the text ended, stop scanning.
const int kScanEnd = -1;

const int kCodeNullArgument = 3;
const int kCodeNoMemory = 4;
const int kCodeNoParent = 5;
const int kCodeStrayClose = 6;
const int kCodeTooManyNodes = 7;
const int kCodeBadToken = 8;

const char* const kKeywords[] = {"Usage", "Type", "Format", "Default", "Description", "Labels"};

const char* const kStringTypes[] = {
    "In",    "Out",   "Info", "InOut",  "Float",     "Integer", "String", "Boolean", "Tap",      "UI",
    "Value", "Range", "List", "Corner", "Increment", "Steps",   "Table",  "Gaussian", "Dual-Dirac", "DjRj"};

int KeywordOf(const char* name) {
    for (int i = 0; i < static_cast<int>(sizeof kKeywords / sizeof kKeywords[0]); ++i)
        if (strcmp(name, kKeywords[i]) == 0) return i + 1;
    return PTREE_KEYWORD_NONE;
}

// Past the double-quoted run that starts at p (at the end of text when the
// run is not closed).
const char* SkipQuoted(const char* p) {
    ++p;
    while (*p != '\0' && *p != '"') ++p;
    if (*p == '"') ++p;
    return p;
}

void FreeLeaf(void** record) {
    LEAF_STRUCT* leaf = static_cast<LEAF_STRUCT*>(*record);
    if (leaf->pValues != nullptr) {
        for (int i = 0; i < leaf->nValues; ++i)
            if (leaf->pValues[i].pszValue != nullptr)
                CMN_freeSetNull(reinterpret_cast<void**>(&leaf->pValues[i].pszValue));
        CMN_freeSetNull(reinterpret_cast<void**>(&leaf->pValues));
    }
    if (leaf->pszName != nullptr) CMN_freeSetNull(reinterpret_cast<void**>(&leaf->pszName));
    CMN_freeSetNull(record);
}

// The children array holds copies of entries whose records belong to the
// flat list, so only the array itself goes here.
void FreeBranch(void** record) {
    BRANCH_STRUCT* branch = static_cast<BRANCH_STRUCT*>(*record);
    if (branch->pszName != nullptr) CMN_freeSetNull(reinterpret_cast<void**>(&branch->pszName));
    if (branch->pChildren != nullptr) CMN_freeSetNull(reinterpret_cast<void**>(&branch->pChildren));
    CMN_freeSetNull(record);
}

// Grows *array (count elements of size bytes) by one element. On failure the
// old array stays in place, still owned by its record.
bool GrowByOne(void** array, int count, size_t size) {
    if (count == 0) return CMN_malloc(array, size) != 0;
    void* grown = *array;
    if (!CMN_realloc(&grown, (static_cast<size_t>(count) + 1) * size)) return false;
    *array = grown;
    return true;
}

// Appends the token [start, end) to the leaf's values, trimmed of trailing
// whitespace and typed.
int AppendValue(LEAF_STRUCT* leaf, const char* start, const char* end) {
    while (end > start && CMN_IsWhitespace(end[-1])) --end;
    if (end < start) return kCodeBadToken;
    if (!GrowByOne(reinterpret_cast<void**>(&leaf->pValues), leaf->nValues, sizeof(VALUE_STRUCT)))
        return kCodeNoMemory;
    VALUE_STRUCT* value = &leaf->pValues[leaf->nValues];
    value->pszValue = CMN_StrMakeN(start, static_cast<int>(end - start));
    if (value->pszValue == nullptr) return kCodeNoMemory;
    value->eValueType = GetValueType(value->pszValue);
    value->eStringType = -1;
    if (value->eValueType == PTREE_VALUE_STRING) s_setStringType(&value->eStringType, value->pszValue);
    ++leaf->nValues;
    return 0;
}

// Scan state shared by the passes of ScanForNodes.
struct Scan {
    const char* p;       // cursor
    int nDepth;          // two per nesting level (see the file banner)
    int nMade;           // entries made
    NODE_ENTRY* pEntries;
    int nRoom;           // entries available (the "(" count)
};

// Reads a leaf's values, cursor on the first one. The leaf's record is
// already in the flat list at nMade, so any early return leaves it where
// FreeParsedTree finds it.
int ScanLeafValues(Scan& s, LEAF_STRUCT* leaf) {
    const char* token = s.p;
    for (;;) {
        const char c = *s.p;
        if (c == '"') {
            s.p = SkipQuoted(s.p);
        } else if (c == ')' || c == '\0') {
            int rc = AppendValue(leaf, token, s.p);
            if (rc != 0) return rc;
            if (c == '\0') {  // cut short by the end of the text: keep what was read
                ++s.nMade;
                return kScanEnd;
            }
            ++s.p;
            CMN_EatWhitespace(&s.p);
            if (s.nDepth == 0) return kCodeStrayClose;
            --s.nDepth;
            ++s.nMade;
            return 0;
        } else if (c == '(') {
            // A nested list inside the values: the leaf is dropped, its
            // entry is reused by the next node, and the group is skipped up
            // to the ")" that closes the leaf.
            FreeLeaf(&s.pEntries[s.nMade].pData);
            s.pEntries[s.nMade] = NODE_ENTRY{};
            int open = 1;
            while (*s.p != '\0' && open > 0) {
                if (*s.p == '"') {
                    s.p = SkipQuoted(s.p);
                    continue;
                }
                if (*s.p == '(')
                    ++open;
                else if (*s.p == ')')
                    --open;
                ++s.p;
            }
            CMN_EatWhitespace(&s.p);
            --s.nDepth;
            return 0;
        } else if (CMN_IsWhitespace(c)) {
            const char* tokenEnd = s.p;
            CMN_EatWhitespace(&s.p);
            // Blanks before the closing ")" stay with the last token, which
            // is trimmed when stored.
            if (*s.p == ')' || *s.p == '\0') continue;
            int rc = AppendValue(leaf, token, tokenEnd);
            if (rc != 0) return rc;
            token = s.p;
        } else {
            ++s.p;
        }
    }
}

// One pass: at most one node. Returns 0, kScanEnd or an error code.
int ScanNode(Scan& s) {
    if (*s.p == '(') {
        ++s.p;
        ++s.nDepth;
        CMN_EatWhitespace(&s.p);
    }
    const char* name;
    for (;;) {
        name = s.p;
        while (*s.p != '\0' && !CMN_IsWhitespace(*s.p) && *s.p != '(' && *s.p != ')') ++s.p;
        if (*s.p != ')') break;
        // A group closes where a name was expected.
        ++s.p;
        CMN_EatWhitespace(&s.p);
        if (s.nDepth < 2 || s.nMade == 0) return kCodeStrayClose;
        if (*s.p == '(') {  // and the next one opens: net one level down
            ++s.p;
            s.nDepth -= 1;
            CMN_EatWhitespace(&s.p);
        } else {
            s.nDepth -= 2;
        }
    }
    const char* nameEnd = s.p;
    CMN_EatWhitespace(&s.p);
    if (*s.p == '\0') return kScanEnd;
    if (s.nMade == s.nRoom) return kCodeTooManyNodes;
    NODE_ENTRY* entry = &s.pEntries[s.nMade];

    if (*s.p == '(') {
        ++s.nDepth;
        if (!CMN_malloc(&entry->pData, sizeof(BRANCH_STRUCT))) return kCodeNoMemory;
        entry->eKind = PTREE_KIND_BRANCH;
        entry->nLevel = s.nDepth / 2;
        BRANCH_STRUCT* branch = static_cast<BRANCH_STRUCT*>(entry->pData);
        branch->pszName = CMN_StrMakeN(name, static_cast<int>(nameEnd - name));
        if (branch->pszName == nullptr) return kCodeNoMemory;
        ++s.nMade;
        return 0;  // the cursor stays on "(", which starts the next node
    }

    if (!CMN_malloc(&entry->pData, sizeof(LEAF_STRUCT))) return kCodeNoMemory;
    entry->eKind = PTREE_KIND_LEAF;
    entry->nLevel = (s.nDepth + 1) / 2;
    LEAF_STRUCT* leaf = static_cast<LEAF_STRUCT*>(entry->pData);
    leaf->pszName = CMN_StrMakeN(name, static_cast<int>(nameEnd - name));
    if (leaf->pszName == nullptr) return kCodeNoMemory;
    leaf->eKeyword = KeywordOf(leaf->pszName);
    return ScanLeafValues(s, leaf);
}

// Lays the children arrays over the first `made` entries of the flat list.
int LinkNodes(PTREE tree, int made) {
    NODE_ENTRY* entries = tree->pNodes;
    if (made < 1 || entries[0].eKind != PTREE_KIND_BRANCH || entries[0].pData == nullptr)
        return kCodeNullArgument;

    int maxLevel = 1;
    for (int i = 0; i < made; ++i)
        if (entries[i].nLevel > maxLevel) maxLevel = entries[i].nLevel;
    NODE_ENTRY* stack = nullptr;
    // Without a stack the tree keeps its flat list and no children.
    if (!CMN_malloc(reinterpret_cast<void**>(&stack), static_cast<size_t>(maxLevel) * sizeof(NODE_ENTRY)))
        return 0;

    int rc = 0;
    int top = 0;
    stack[0] = entries[0];
    for (int i = 1; i < made; ++i) {
        const NODE_ENTRY entry = entries[i];
        if (entry.eKind != PTREE_KIND_BRANCH && entry.eKind != PTREE_KIND_LEAF) break;
        while (top >= 0 && stack[top].nLevel >= entry.nLevel) --top;
        if (top < 0) {
            rc = kCodeNoParent;
            break;
        }
        if (stack[top].pData == nullptr) {
            rc = kCodeNullArgument;
            break;
        }
        if (stack[top].nLevel + 1 != entry.nLevel) continue;  // left unattached
        BRANCH_STRUCT* parent = static_cast<BRANCH_STRUCT*>(stack[top].pData);
        if (!GrowByOne(reinterpret_cast<void**>(&parent->pChildren), parent->nChildren, sizeof(NODE_ENTRY))) {
            rc = kCodeNoMemory;
            break;
        }
        parent->pChildren[parent->nChildren++] = entry;
        if (entry.eKind == PTREE_KIND_BRANCH) {
            // Levels on the stack rise by one from the root's, so it never
            // outgrows maxLevel; the test only guards the array.
            if (top + 1 >= maxLevel) {
                rc = kCodeNoParent;
                break;
            }
            stack[++top] = entry;
        }
    }
    CMN_freeSetNull(reinterpret_cast<void**>(&stack));
    return rc;
}

}  // namespace

int ISValidBuffer(const char* text, int* count) {
    if (count != nullptr) *count = 0;
    if (text == nullptr) return 1;
    int opened = 0;
    int depth = 0;
    bool quoted = false;
    for (const char* p = text; *p != '\0'; ++p) {
        if (*p == '"') {
            quoted = !quoted;
        } else if (!quoted) {
            if (*p == '(') {
                ++opened;
                ++depth;
            } else if (*p == ')') {
                if (--depth < 0) return 0;
            }
        }
    }
    if (depth != 0) return 0;
    if (count != nullptr) *count = opened;
    return 1;
}

int ScanForNodes(const char* text, NODE_ENTRY* entries, int* count) {
    if (text == nullptr || count == nullptr) return kCodeNullArgument;
    Scan s{text, 0, 0, entries, *count};
    if (s.nRoom > 0 && entries == nullptr) return kCodeNullArgument;
    int rc = 0;
    // One pass per "(" at most; closing groups inside a pass do not count.
    for (int pass = 0; pass < s.nRoom && *s.p != '\0'; ++pass) {
        rc = ScanNode(s);
        if (rc != 0) break;
    }
    *count = s.nMade;
    return rc == kScanEnd ? 0 : rc;
}

int GetParsedTree(const char* text, PTREE* out) {
    if (text == nullptr || out == nullptr) return kCodeNullArgument;
    const char* start = text;
    CMN_EatWhitespace(&start);
    if (*start != '(') return 2;
    int nodes = 0;
    if (!ISValidBuffer(start, &nodes)) return 1;

    PTREE tree = nullptr;
    if (!CMN_malloc(reinterpret_cast<void**>(&tree), sizeof(TREE))) return kCodeNoMemory;
    if (!CMN_malloc(reinterpret_cast<void**>(&tree->pNodes), static_cast<size_t>(nodes) * sizeof(NODE_ENTRY))) {
        FreeParsedTree(&tree);
        return kCodeNoMemory;
    }
    tree->nNodes = nodes;

    char* copy = CMN_StrMake(start);
    if (copy == nullptr) {  // nothing to scan: hand out the empty tree
        *out = tree;
        return 0;
    }
    int made = nodes;
    int rc = ScanForNodes(copy, tree->pNodes, &made);
    if (rc == 0) rc = LinkNodes(tree, made);
    CMN_freeSetNull(reinterpret_cast<void**>(&copy));
    if (rc != 0) {
        FreeParsedTree(&tree);
        return rc;
    }
    *out = tree;
    return 0;
}

void FreeParsedTree(PTREE* tree) {
    if (tree == nullptr || *tree == nullptr) return;
    PTREE t = *tree;
    if (t->pNodes != nullptr) {
        for (int i = 0; i < t->nNodes; ++i) {
            NODE_ENTRY* entry = &t->pNodes[i];
            if (entry->pData == nullptr) continue;
            if (entry->eKind == PTREE_KIND_LEAF)
                FreeLeaf(&entry->pData);
            else
                FreeBranch(&entry->pData);
        }
        CMN_freeSetNull(reinterpret_cast<void**>(&t->pNodes));
    }
    CMN_freeSetNull(reinterpret_cast<void**>(tree));
}

int GetValueType(const char* text) {
    if (text == nullptr || *text == '\0') return PTREE_VALUE_NONE;
    if (text[0] == '"') return PTREE_VALUE_STRING;
    char* end = nullptr;
    (void)strtol(text, &end, 10);
    if (*end == '\0') return PTREE_VALUE_INTEGER;
    (void)strtod(text, &end);
    if (*end == '\0') return PTREE_VALUE_FLOAT;
    if (strcmp(text, "True") == 0 || strcmp(text, "False") == 0) return PTREE_VALUE_BOOLEAN;
    return PTREE_VALUE_STRING;
}

void s_setStringType(int* field, const char* text) {
    if (field == nullptr || text == nullptr) return;
    for (int i = 0; i < static_cast<int>(sizeof kStringTypes / sizeof kStringTypes[0]); ++i) {
        if (strcmp(text, kStringTypes[i]) == 0) {
            *field = i;
            return;
        }
    }
}
