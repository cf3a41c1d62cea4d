// ParamParser: typed access to the AMI parameter text by dotted path.
//
// The text is parsed once, on construction, into a ParsedTree; lookups then
// name a leaf by its full path from the root ("KV2_RX.EQ") and read its first
// value, provided it has the type the getter needs. A failed lookup returns
// false and leaves the output as it was, so callers keep their defaults.
#pragma once

#include "amiparams/ParsedTree.h"

namespace TesselModelBuilder {
namespace AMI {

class ParamParser {
public:
    bool m_bIsValid;    // the text parsed with code 0
    PTREE m_pOutTree;   // the parsed tree; null until parsing produced one

    explicit ParamParser(const char* text);
    // Leaves the tree alive on purpose: it is never released (see the
    // destructor's definition).
    ~ParamParser();

    // The leaf at `path`, or null.
    _tagLeafStruct* GetLeaf(const char* path);
    // Depth-first search below `branch`, whose own full name is
    // prefix + "." + name (the name alone when prefix is empty).
    _tagLeafStruct* FindLeafWithName(const _tagBranchStruct* branch, const char* path, const char* prefix);
    // True when the branch's first child is a leaf.
    bool IsParamLeafBranch(const _tagBranchStruct* branch);

    // Boolean value: true when it reads "true" in any case.
    bool GetValue(bool& out, const char* path);
    // Integer or float value, read with strtod.
    bool GetValue(double& out, const char* path);
    // Integer or float value truncated toward zero; fails when the value
    // does not fit in an int.
    bool GetValue(int& out, const char* path);
    // String value without its first and last character (the quotes), in a
    // new array owned by the caller (array delete). A previous non-null out
    // is released first, with array delete, when the lookup succeeds.
    bool GetValue(char*& out, const char* path);
};

}  // namespace AMI
}  // namespace TesselModelBuilder
