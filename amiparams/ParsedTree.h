// ParsedTree: the AMI parameter text turned into a tree of branches and leaves.
//
// "(KV2_RX (EQ 3) (Corner \"Typ\"))" becomes a branch KV2_RX holding the
// leaves EQ (value "3", integer) and Corner (value "\"Typ\"", string).
// Written as plain records and free functions with integer return codes:
// every record is zero-filled by CMN_malloc, every text is a heap copy owned
// by the record that holds it, and FreeParsedTree releases it all.
//
// The nodes are kept twice over: a flat list in document order (which owns
// the records) and, laid over it, the children arrays of the branches (which
// hold copies of the entries and so point at the same records).
#pragma once

// Node kinds (NODE_ENTRY::eKind).
enum { PTREE_KIND_BRANCH = 0, PTREE_KIND_LEAF = 1 };

// Value types returned by GetValueType.
enum {
    PTREE_VALUE_NONE = -1,
    PTREE_VALUE_STRING = 0,
    PTREE_VALUE_INTEGER = 1,
    PTREE_VALUE_BOOLEAN = 2,
    PTREE_VALUE_FLOAT = 3
};

// Reserved leaf names (LEAF_STRUCT::eKeyword); 0 for any other name.
enum {
    PTREE_KEYWORD_NONE = 0,
    PTREE_KEYWORD_USAGE = 1,
    PTREE_KEYWORD_TYPE = 2,
    PTREE_KEYWORD_FORMAT = 3,
    PTREE_KEYWORD_DEFAULT = 4,
    PTREE_KEYWORD_DESCRIPTION = 5,
    PTREE_KEYWORD_LABELS = 6
};

// One node: in the flat list and, as a copy, in its parent's children.
typedef struct _tagNodeEntry {
    int eKind;    // PTREE_KIND_BRANCH or PTREE_KIND_LEAF
    int nLevel;   // nesting level, root = 1
    void* pData;  // _tagBranchStruct* or _tagLeafStruct*, by eKind
} NODE_ENTRY;

typedef struct _tagBranchStruct {
    char* pszName;
    NODE_ENTRY* pChildren;  // copies of the children's entries
    int nChildren;
} BRANCH_STRUCT;

typedef struct _tagValueStruct {
    char* pszValue;   // trimmed token, double quotes kept
    int eValueType;   // PTREE_VALUE_*
    int eStringType;  // s_setStringType code for strings; -1 when none matched
} VALUE_STRUCT;

typedef struct _tagLeafStruct {
    char* pszName;
    VALUE_STRUCT* pValues;
    int nValues;
    int eKeyword;  // PTREE_KEYWORD_*
} LEAF_STRUCT;

typedef struct _tagTree {
    NODE_ENTRY* pNodes;  // flat list, entry 0 the root; owns the records
    int nNodes;          // opening parentheses in the text; unused entries stay zero
} TREE, *PTREE;

// Parses text into *out (owned by the caller, released with FreeParsedTree).
// 0 on success; otherwise *out is untouched and the code says why:
//   1 unbalanced parentheses, 2 text not starting with "(", 3 null argument
//   or a root that is not a branch, 4 allocation failure, 5 a node without an
//   open parent, 6 a ")" closing a group at the top or before any node,
//   7 more nodes than parentheses, 8 inconsistent token bounds.
int GetParsedTree(const char* text, PTREE* out);

// Releases every record, text and array of *tree and nulls it.
void FreeParsedTree(PTREE* tree);

// 1 when the parentheses outside double quotes nest properly, with
// *count = number of "(" counted; else 0 with *count = 0.
int ISValidBuffer(const char* text, int* count);

// Fills the flat list from text; *count is the room in entries on entry and
// the number of entries made on return. 0 or an error code as above.
int ScanForNodes(const char* text, NODE_ENTRY* entries, int* count);

// PTREE_VALUE_* of a value text.
int GetValueType(const char* text);

// Sets *field to the code of a reserved string value ("In" 0 ... "DjRj" 19);
// leaves it unchanged when text is none of them.
void s_setStringType(int* field, const char* text);
