// Tests of the parameter-tree parser: trees of the example texts (value
// typing included), every reachable return code and real simulator strings.
// Malformed input at large is the fuzzer's (fuzz/, replayed by the AMI tests);
// the whitespace limit is cmn's.
#include "amiparams/ParsedTree.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace {

// Renders the flat list in document order: "B<level> name[children]" for a
// branch, "L<level> name#keyword=value:type/stringtype,..." for a leaf ("#"
// and "/" only when set), "-" for an empty entry.
std::string Describe(const TREE* tree) {
    auto name = [](const NODE_ENTRY& e) {
        return e.eKind == PTREE_KIND_BRANCH ? static_cast<const BRANCH_STRUCT*>(e.pData)->pszName
                                            : static_cast<const LEAF_STRUCT*>(e.pData)->pszName;
    };
    std::string out;
    for (int i = 0; i < tree->nNodes; ++i) {
        const NODE_ENTRY& e = tree->pNodes[i];
        out += i > 0 ? " | " : "";
        if (e.pData == nullptr) {
            out += "-";
        } else if (e.eKind == PTREE_KIND_BRANCH) {
            const BRANCH_STRUCT* b = static_cast<const BRANCH_STRUCT*>(e.pData);
            out += "B" + std::to_string(e.nLevel) + " " + name(e) + "[";
            for (int c = 0; c < b->nChildren; ++c) out += (c > 0 ? "," : "") + std::string(name(b->pChildren[c]));
            out += "]";
        } else {
            const LEAF_STRUCT* l = static_cast<const LEAF_STRUCT*>(e.pData);
            out += "L" + std::to_string(e.nLevel) + " " + name(e) + (l->eKeyword ? "#" + std::to_string(l->eKeyword) : "") + "=";
            for (int v = 0; v < l->nValues; ++v) {
                const VALUE_STRUCT& value = l->pValues[v];
                out += (v > 0 ? "," : "") + std::string(value.pszValue) + ":" + std::to_string(value.eValueType);
                if (value.eValueType == PTREE_VALUE_STRING && value.eStringType != -1)
                    out += "/" + std::to_string(value.eStringType);
            }
        }
    }
    return out;
}

const PTREE kSentinel = reinterpret_cast<PTREE>(static_cast<uintptr_t>(0x5a5a));

// The tree of text, or "code N" when it fails (and then the output is untouched).
std::string ParseAndDescribe(const char* text) {
    PTREE tree = kSentinel;
    const int rc = GetParsedTree(text, &tree);
    if (rc != 0) {
        EXPECT_EQ(tree, kSentinel);
        return "code " + std::to_string(rc);
    }
    const std::string description = Describe(tree);
    FreeParsedTree(&tree);
    EXPECT_EQ(tree, nullptr);
    return description;
}

}  // namespace

TEST(ParsedTree, TextsGiveTheirTreesOrCodes) {
    const struct { std::string text; std::string tree; } cases[] = {
        {"(KV2_RX (EQ 3) (SamplesPerBit 32) (Corner \"Typ\"))",
         "B1 KV2_RX[EQ,SamplesPerBit,Corner] | L2 EQ=3:1 | L2 SamplesPerBit=32:1 | L2 Corner=\"Typ\":0"},
        // A nested list inside the values drops the leaf; a "(" right after
        // the name makes a branch.
        {"(A (L 1 (2 3)) (M 4))", "B1 A[M] | L2 M=4:1 | - | -"},
        {"(A (L (2 3)))", "B1 A[L] | B2 L[2] | L3 2=3:1"},
        {"(A (B (C (D x))) (E y))", "B1 A[B,E] | B2 B[C] | B3 C[D] | L4 D=x:0 | L2 E=y:0"},
        // Blanks before ")" are trimmed off; an empty group is a leaf with
        // an empty value.
        {"(A (B 1   ) (C ))", "B1 A[B,C] | L2 B=1:1 | L2 C=:-1"},
        {"(A (Usage In) (Type Float) (Format Range 0 15) (Default True) (Description \"d\") (Labels a) (usage Out))",
         "B1 A[Usage,Type,Format,Default,Description,Labels,usage] | L2 Usage#1=In:0/0 | L2 Type#2=Float:0/4 | "
         "L2 Format#3=Range:0/11,0:1,15:1 | L2 Default#4=True:2 | L2 Description#5=\"d\":0 | L2 Labels#6=a:0 | "
         "L2 usage=Out:0/1"},
        {"(A (S In Out Info InOut Float Integer String Boolean Tap UI Value Range List Corner Increment Steps Table "
         "Gaussian Dual-Dirac DjRj in Typ))",
         "B1 A[S] | L2 S=In:0/0,Out:0/1,Info:0/2,InOut:0/3,Float:0/4,Integer:0/5,String:0/6,Boolean:0/7,Tap:0/8,"
         "UI:0/9,Value:0/10,Range:0/11,List:0/12,Corner:0/13,Increment:0/14,Steps:0/15,Table:0/16,Gaussian:0/17,"
         "Dual-Dirac:0/18,DjRj:0/19,in:0,Typ:0"},
        // Value typing: boolean words, then integers, then anything strtod reads whole.
        {"(A (B 3 -2 +7 3.0 1e-9 0x10 inf nan -1.5E+3 True False TRUE true \"3\" \"In\" 3x 1.0.0 DJRJ))",
         "B1 A[B] | L2 B=3:1,-2:1,+7:1,3.0:3,1e-9:3,0x10:3,inf:3,nan:3,-1.5E+3:3,True:2,False:2,TRUE:0,true:0,"
         "\"3\":0,\"In\":0,3x:0,1.0.0:0,DJRJ:0"},
        {"(A (B \"" + std::string(300, ' ') + "\"))", "B1 A[B] | L2 B=\"" + std::string(300, ' ') + "\":0"},
        // Simulator strings: multi-line with CR LF, and the compact form
        // (no blank between groups, doubled quotes).
        {"\n(KV2_RX\n\t(Reserved\n\t\t(AMI_Version \"7.1\")\r\n\t)\n\t(EQ   7  )\r\n)\n",
         "B1 KV2_RX[Reserved,EQ] | B2 Reserved[AMI_Version] | L3 AMI_Version=\"7.1\":0 | L2 EQ=7:1"},
        {"(KV2_RX (SampleRate 1000000000000.0)(EQ 10)(Corner \"\"Typ\"\"))",
         "B1 KV2_RX[SampleRate,EQ,Corner] | L2 SampleRate=1000000000000.0:3 | L2 EQ=10:1 | L2 Corner=\"\"Typ\"\":0"},
        {"(KV2_RX(Sub(EQ 1)(X 2))(Y 3))", "B1 KV2_RX[Sub,Y] | B2 Sub[EQ,X] | L3 EQ=1:1 | L3 X=2:1 | L2 Y=3:1"},
        // Every reachable failure code.
        {"   \n", "code 2"}, {"KV2_RX (EQ 3)", "code 2"}, {"(KV2_RX (EQ 3)", "code 1"}, {"(A (B \"1)))", "code 1"},
        {"(A))((B 1)", "code 1"}, {"(A \"(\" )", "code 3"}, {"(A (B 1)) (C (D 2))", "code 5"}, {"( )", "code 6"},
        {"(A (B 1)) \"C 2)\" ()", "code 6"},
    };
    for (const auto& c : cases) EXPECT_EQ(ParseAndDescribe(c.text.c_str()), c.tree) << c.text;
    EXPECT_EQ(ParseAndDescribe(nullptr), "code 3");
    EXPECT_EQ(GetParsedTree("(A (B 1))", nullptr), 3);
    FreeParsedTree(nullptr);  // and nothing to free is no fault
}
