// Tests of the parameter-tree parser: trees of the example texts, every
// reachable return code, value typing, the whitespace limit, real simulator
// strings and generated malformed input.
#include "amiparams/ParsedTree.h"

#include "ChildProcess.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <set>
#include <string>
#include <vector>

using amiparams_test::RunInChild;

namespace {

// Renders the flat list in document order: "B<level> name[children]" for a
// branch, "L<level> name#keyword=value:type/stringtype,..." for a leaf ("#"
// and "/" only when set), "-" for an empty entry.
std::string Describe(const TREE* tree) {
    std::string out;
    for (int i = 0; i < tree->nNodes; ++i) {
        if (i > 0) out += " | ";
        const NODE_ENTRY& e = tree->pNodes[i];
        if (e.pData == nullptr) {
            out += "-";
        } else if (e.eKind == PTREE_KIND_BRANCH) {
            const BRANCH_STRUCT* b = static_cast<const BRANCH_STRUCT*>(e.pData);
            out += "B" + std::to_string(e.nLevel) + " " + b->pszName + "[";
            for (int c = 0; c < b->nChildren; ++c) {
                const NODE_ENTRY& child = b->pChildren[c];
                out += c > 0 ? "," : "";
                out += child.eKind == PTREE_KIND_BRANCH ? static_cast<const BRANCH_STRUCT*>(child.pData)->pszName
                                                        : static_cast<const LEAF_STRUCT*>(child.pData)->pszName;
            }
            out += "]";
        } else {
            const LEAF_STRUCT* l = static_cast<const LEAF_STRUCT*>(e.pData);
            out += "L" + std::to_string(e.nLevel) + " " + l->pszName;
            if (l->eKeyword != 0) out += "#" + std::to_string(l->eKeyword);
            out += "=";
            for (int v = 0; v < l->nValues; ++v) {
                const VALUE_STRUCT& value = l->pValues[v];
                out += v > 0 ? "," : "";
                out += std::string(value.pszValue) + ":" + std::to_string(value.eValueType);
                if (value.eValueType == PTREE_VALUE_STRING && value.eStringType != -1)
                    out += "/" + std::to_string(value.eStringType);
            }
        }
    }
    return out;
}

// Structural checks a correct tree always passes: the root is a branch,
// every record appears once in the flat list, children point at records of
// the flat list one level down.
void CheckStructure(const TREE* tree) {
    ASSERT_NE(tree->pNodes, nullptr);
    ASSERT_GE(tree->nNodes, 1);
    ASSERT_EQ(tree->pNodes[0].eKind, PTREE_KIND_BRANCH);
    ASSERT_NE(tree->pNodes[0].pData, nullptr);
    std::set<const void*> records;
    for (int i = 0; i < tree->nNodes; ++i)
        if (tree->pNodes[i].pData != nullptr) {
            ASSERT_TRUE(records.insert(tree->pNodes[i].pData).second);
        }
    for (int i = 0; i < tree->nNodes; ++i) {
        const NODE_ENTRY& e = tree->pNodes[i];
        if (e.pData == nullptr || e.eKind != PTREE_KIND_BRANCH) continue;
        const BRANCH_STRUCT* b = static_cast<const BRANCH_STRUCT*>(e.pData);
        for (int c = 0; c < b->nChildren; ++c) {
            EXPECT_EQ(records.count(b->pChildren[c].pData), 1u);
            EXPECT_EQ(b->pChildren[c].nLevel, e.nLevel + 1);
        }
    }
}

std::string ParseAndDescribe(const std::string& text) {
    PTREE tree = nullptr;
    int rc = GetParsedTree(text.c_str(), &tree);
    if (rc != 0) return "code " + std::to_string(rc);
    CheckStructure(tree);
    std::string description = Describe(tree);
    FreeParsedTree(&tree);
    EXPECT_EQ(tree, nullptr);
    return description;
}

}  // namespace

TEST(ParsedTree, ExampleTextsGiveTheirTrees) {
    struct { std::string text; std::string tree; } cases[] = {
        {"(KV2_RX (EQ 3) (SamplesPerBit 32) (Corner \"Typ\"))",
         "B1 KV2_RX[EQ,SamplesPerBit,Corner] | L2 EQ=3:1 | L2 SamplesPerBit=32:1 | L2 Corner=\"Typ\":0"},
        {"(KV2_RX (EQ 3))", "B1 KV2_RX[EQ] | L2 EQ=3:1"},
        {"\n\t  (KV2_RX (EQ 3))", "B1 KV2_RX[EQ] | L2 EQ=3:1"},
        {"(A (B \"x ) y\"))", "B1 A[B] | L2 B=\"x ) y\":0"},
        {"(A (B \"(\" \")\"))", "B1 A[B] | L2 B=\"(\":0,\")\":0"},
        // A nested list inside the values drops the leaf; a "(" right after
        // the name makes a branch.
        {"(A (L 1 (2 3)) (M 4))", "B1 A[M] | L2 M=4:1 | - | -"},
        {"(A (L 1(2 (3 4)) 5) (M 4))", "B1 A[M] | L2 M=4:1 | - | - | -"},
        {"(A (L (2 3)))", "B1 A[L] | B2 L[2] | L3 2=3:1"},
        {"(A (L(2 3)))", "B1 A[L] | B2 L[2] | L3 2=3:1"},
        {"(A (B 1 2 3))", "B1 A[B] | L2 B=1:1,2:1,3:1"},
        {"(A (B (C 1)) (D 2))", "B1 A[B,D] | B2 B[C] | L3 C=1:1 | L2 D=2:1"},
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
        {"(A" + std::string(120, ' ') + "(B" + std::string(120, '\t') + "1))", "B1 A[B] | L2 B=1:1"},
        {"(A (B \"" + std::string(300, ' ') + "\"))", "B1 A[B] | L2 B=\"" + std::string(300, ' ') + "\":0"},
    };
    for (const auto& c : cases) EXPECT_EQ(ParseAndDescribe(c.text), c.tree) << c.text;
}

TEST(ParsedTree, MalformedTextsGiveTheirCodes) {
    struct { const char* text; int code; } cases[] = {
        {nullptr, 3},
        {"", 2}, {"   \n", 2}, {"KV2_RX (EQ 3)", 2}, {")(", 2},
        {"(KV2_RX (EQ 3)", 1}, {"(A (B 1)))", 1}, {"(A (B \"1)))", 1}, {"(A))((B 1)", 1},
        {"(A 1)", 3}, {"(A \"(\" )", 3},
        {"(KV2_RX (EQ 3)) (X 1)", 5}, {"(A (B 1)) (C (D 2))", 5},
        {"(KV2_RX)", 6}, {"()", 6}, {"( )", 6}, {"(A (B 1)) \"C 2)\" ()", 6},
    };
    const PTREE sentinel = reinterpret_cast<PTREE>(static_cast<uintptr_t>(0x5a5a));
    for (const auto& c : cases) {
        PTREE tree = sentinel;
        EXPECT_EQ(GetParsedTree(c.text, &tree), c.code) << (c.text ? c.text : "(null)");
        EXPECT_EQ(tree, sentinel) << (c.text ? c.text : "(null)");
    }
    EXPECT_EQ(GetParsedTree("(A (B 1))", nullptr), 3);
    FreeParsedTree(nullptr);
    PTREE none = nullptr;
    FreeParsedTree(&none);
}

TEST(ParsedTree, StagesOnTheirOwn) {
    struct { const char* text; int valid; int count; } buffers[] = {
        {nullptr, 1, 0}, {"", 1, 0}, {"()", 1, 1}, {"(()", 0, 0}, {")(", 0, 0},
        {"(\")\")", 1, 1}, {"(a \"(\" (b))", 1, 2}, {"(a \"b)", 0, 0}};
    for (const auto& b : buffers) {
        int count = -7;
        EXPECT_EQ(ISValidBuffer(b.text, &count), b.valid) << (b.text ? b.text : "(null)");
        EXPECT_EQ(count, b.count) << (b.text ? b.text : "(null)");
    }
    EXPECT_EQ(ISValidBuffer("(x)", nullptr), 1);

    // The scan makes at most one node per "(" it is allowed.
    TREE tree{};
    tree.nNodes = 2;
    tree.pNodes = static_cast<NODE_ENTRY*>(calloc(2, sizeof(NODE_ENTRY)));
    int count = 2;
    EXPECT_EQ(ScanForNodes("(A (B 1) (C 2))", tree.pNodes, &count), 0);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(Describe(&tree), "B1 A[] | L2 B=1:1");
    PTREE owned = static_cast<PTREE>(calloc(1, sizeof(TREE)));
    *owned = tree;
    FreeParsedTree(&owned);

    struct { const char* text; int type; } types[] = {
        {nullptr, -1}, {"", -1}, {"3", 1}, {"-2", 1}, {"+7", 1}, {"3.0", 3}, {"1e-9", 3}, {"0x10", 3},
        {"inf", 3}, {"nan", 3}, {"-1.5E+3", 3}, {"True", 2}, {"False", 2}, {"TRUE", 0}, {"true", 0},
        {"\"3\"", 0}, {"\"True\"", 0}, {"3x", 0}, {"Typ", 0}, {"1.0.0", 0}};
    for (const auto& t : types) EXPECT_EQ(GetValueType(t.text), t.type) << (t.text ? t.text : "(null)");

    const char* subtypes[] = {"In", "Out", "Info", "InOut", "Float", "Integer", "String", "Boolean", "Tap", "UI",
                              "Value", "Range", "List", "Corner", "Increment", "Steps", "Table", "Gaussian",
                              "Dual-Dirac", "DjRj"};
    for (int i = 0; i < 20; ++i) {
        int field = 99;
        s_setStringType(&field, subtypes[i]);
        EXPECT_EQ(field, i) << subtypes[i];
    }
    for (const char* other : {"\"Typ\"", "\"In\"", "in", "", "DJRJ", "Dual_Dirac"}) {
        int field = 99;
        s_setStringType(&field, other);
        EXPECT_EQ(field, 99) << other;
    }
}

TEST(ParsedTree, SimulatorStringsParse) {
    const std::string multiLine =
        "\n(KV2_RX\n"
        "\t(Reserved_Parameters\n"
        "\t\t(AMI_Version \"7.1\")\n"
        "\t\t(Init_Returns_Impulse False)\n"
        "\t\t(GetWave_Exists True)\n"
        "\t)\n"
        "\t(SampleRate 1e12)\n"
        "\t(EQ 7)\r\n"
        "\t(SamplesPerBit   32  )\n"
        "\t(Corner \"Fast\")\n"
        "\t(Model_Specific (Tap_Count 3) (Mode \"Adaptive\"))\n"
        ")\n";
    EXPECT_EQ(ParseAndDescribe(multiLine),
              "B1 KV2_RX[Reserved_Parameters,SampleRate,EQ,SamplesPerBit,Corner,Model_Specific] | "
              "B2 Reserved_Parameters[AMI_Version,Init_Returns_Impulse,GetWave_Exists] | L3 AMI_Version=\"7.1\":0 | "
              "L3 Init_Returns_Impulse=False:2 | L3 GetWave_Exists=True:2 | L2 SampleRate=1e12:3 | L2 EQ=7:1 | "
              "L2 SamplesPerBit=32:1 | L2 Corner=\"Fast\":0 | B2 Model_Specific[Tap_Count,Mode] | L3 Tap_Count=3:1 | "
              "L3 Mode=\"Adaptive\":0");
    // The compact form: no blank between groups, doubled quotes.
    EXPECT_EQ(ParseAndDescribe("(KV2_RX (SampleRate 1000000000000.0)(EQ 10)(SamplesPerBit 32)(Corner \"\"Typ\"\"))"),
              "B1 KV2_RX[SampleRate,EQ,SamplesPerBit,Corner] | L2 SampleRate=1000000000000.0:3 | L2 EQ=10:1 | "
              "L2 SamplesPerBit=32:1 | L2 Corner=\"\"Typ\"\":0");
    EXPECT_EQ(ParseAndDescribe("(KV2_RX(Sub(EQ 1)(X 2))(Y 3))"), "B1 KV2_RX[Sub,Y] | B2 Sub[EQ,X] | L3 EQ=1:1 | L3 X=2:1 | L2 Y=3:1");
}

TEST(ParsedTree, LongWhitespaceRunsAbort) {
    const std::string cases[] = {
        "(KV2_RX" + std::string(121, ' ') + "(EQ 3))",
        std::string(121, '\n') + "(KV2_RX (EQ 3))",
        "(KV2_RX (EQ" + std::string(61, ' ') + std::string(60, '\t') + "3))",
        "(KV2_RX (EQ 3" + std::string(121, ' ') + "))",
    };
    for (const std::string& text : cases) {
        auto outcome = RunInChild([&] {
            PTREE tree = nullptr;
            GetParsedTree(text.c_str(), &tree);
        });
        EXPECT_TRUE(outcome.bAborted) << text.size();
        EXPECT_EQ(outcome.sStdout, "cmn.cpp:616:assertion failed.\n");
    }
}

// Truncations and random edits of valid texts: the parser must return one
// of its codes, hand out a well-formed tree on 0 and release it completely
// (leaks and bad accesses show in the sanitizer build).
TEST(ParsedTree, GeneratedMalformedInputReturnsACode) {
    const std::string bases[] = {
        "(KV2_RX (EQ 3) (SamplesPerBit 32) (Corner \"Typ\"))",
        "(KV2_RX (SampleRate 1000000000000.0)(EQ 10)(SamplesPerBit 32)(Corner \"\"Typ\"\"))",
        "\n(KV2_RX\n\t(Reserved (AMI_Version \"7.1\") (GetWave_Exists True))\n\t(EQ 7)\n\t(L 1 (2 \"(\" 3)) (M 4 5)\n)\n",
        "(A (B (C 1)) (D \"x ) y\" 2.5) (E (F (G True))))",
    };
    const uint32_t seed = 20240607u;
    std::mt19937 rng(seed);
    SCOPED_TRACE("seed " + std::to_string(seed));
    printf("malformed-input seed %u\n", seed);
    std::vector<std::string> inputs;
    for (const std::string& base : bases)
        for (size_t n = 0; n <= base.size(); ++n) inputs.push_back(base.substr(0, n));
    const std::string alphabet = "()\"  \t\nAB1.x";
    for (int i = 0; i < 4000; ++i) {
        std::string s = bases[rng() % 4];
        const int edits = 1 + static_cast<int>(rng() % 4);
        for (int e = 0; e < edits && !s.empty(); ++e) {
            const size_t at = rng() % s.size();
            switch (rng() % 4) {
            case 0: s.erase(at, 1); break;
            case 1: s.insert(at, 1, alphabet[rng() % alphabet.size()]); break;
            case 2: s[at] = alphabet[rng() % alphabet.size()]; break;
            default: s.insert(at, s.substr(rng() % s.size(), 1 + rng() % 12)); break;
            }
        }
        inputs.push_back(s);
    }

    int parsed = 0;
    int counts[9] = {};
    for (const std::string& text : inputs) {
        size_t run = 0, longest = 0;
        for (char c : text) longest = std::max(longest, run = (c == ' ' || (c >= '\t' && c <= '\r')) ? run + 1 : 0);
        ASSERT_LT(longest, 121u) << text;
        const PTREE sentinel = reinterpret_cast<PTREE>(static_cast<uintptr_t>(0x5a5a));
        PTREE tree = sentinel;
        const int rc = GetParsedTree(text.c_str(), &tree);
        ASSERT_TRUE(rc >= 0 && rc <= 8 && rc != 4) << rc << " for " << text;
        ++counts[rc];
        if (rc != 0) {
            ASSERT_EQ(tree, sentinel) << text;
            continue;
        }
        ++parsed;
        CheckStructure(tree);
        FreeParsedTree(&tree);
        ASSERT_EQ(tree, nullptr);
    }
    // The generator must reach both the good and the failing paths.
    EXPECT_GT(parsed, 100);
    EXPECT_GT(counts[1], 100);
    EXPECT_GT(counts[2], 0);
    EXPECT_GT(counts[5] + counts[6], 0);
    printf("parsed %d; codes 1:%d 2:%d 3:%d 5:%d 6:%d\n", parsed, counts[1], counts[2], counts[3], counts[5], counts[6]);
}
