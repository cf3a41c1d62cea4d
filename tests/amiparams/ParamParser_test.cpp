// Tests of the typed lookup by dotted path.
#include "amiparams/ParamParser.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>

using TesselModelBuilder::AMI::ParamParser;

namespace {

// Runs check on a parser of text. The parser keeps its tree past its own
// destruction; the tree is released here afterwards, which the sanitizer
// build would flag as a double free had the destructor released it.
void WithParser(const char* text, const std::function<void(ParamParser&)>& check) {
    PTREE kept = nullptr;
    {
        ParamParser parser(text);
        check(parser);
        kept = parser.m_pOutTree;
    }
    FreeParsedTree(&kept);
}

}  // namespace

TEST(ParamParser, NumbersByFullPath) {
    struct { const char* text; const char* path; bool found; double d; int i; } cases[] = {
        {"(KV2_RX (EQ 3) (Corner \"Typ\"))", "KV2_RX.EQ", true, 3.0, 3},
        {"(KV2_RX (EQ 3.9))", "KV2_RX.EQ", true, 3.9, 3},
        {"(KV2_RX (EQ -2.9))", "KV2_RX.EQ", true, -2.9, -2},
        {"(KV2_RX (EQ 1e1))", "KV2_RX.EQ", true, 10.0, 10},
        {"(KV2_RX (EQ 0x10))", "KV2_RX.EQ", true, 16.0, 16},
        {"(KV2_RX (SampleRate 1000000000000.0)(EQ 10))", "KV2_RX.EQ", true, 10.0, 10},
        {"(KV2_RX (EQ 3) (EQ 5))", "KV2_RX.EQ", true, 3.0, 3},              // first in document order
        {"(KV2_RX (EQ 4 9))", "KV2_RX.EQ", true, 4.0, 4},                   // first value only
        {"(KV2_RX (Sub (EQ 3)))", "KV2_RX.Sub.EQ", true, 3.0, 3},
        {"(KV2_RX (A.B 6))", "KV2_RX.A.B", true, 6.0, 6},
        {"(KV2_RX (Sub (EQ 3)) (EQ 8))", "KV2_RX.EQ", true, 8.0, 8},
        {"(KV2_RX (Sub (EQ 3)))", "KV2_RX.EQ", false, 0, 0},
        {"(KV2_RX (EQ 3))", "EQ", false, 0, 0},
        {"(KV2_RX (EQ 3))", "kv2_rx.EQ", false, 0, 0},
        {"(KV2_RX (EQ 3))", "KV2_RX", false, 0, 0},
        {"(KV2_RX (Sub (EQ 3)))", "KV2_RX.Sub", false, 0, 0},
        {"(KV2_RX (EQ 3))", "KV2_RX.EQ.", false, 0, 0},
        {"(KV2_RX (EQ \"3\"))", "KV2_RX.EQ", false, 0, 0},
        {"(KV2_RX (EQ True))", "KV2_RX.EQ", false, 0, 0},
        {"(KV2_RX (EQ ))", "KV2_RX.EQ", false, 0, 0},
        {"(KV2_RX (EQ 3)", "KV2_RX.EQ", false, 0, 0},
        {"(A 1)", "A", false, 0, 0},
    };
    for (const auto& c : cases) {
        WithParser(c.text, [&](ParamParser& p) {
            double d = -123.0;
            int i = -123;
            EXPECT_EQ(p.GetValue(d, c.path), c.found) << c.text << " " << c.path;
            EXPECT_EQ(p.GetValue(i, c.path), c.found) << c.text << " " << c.path;
            EXPECT_EQ(d, c.found ? c.d : -123.0) << c.text;
            EXPECT_EQ(i, c.found ? c.i : -123) << c.text;
        });
    }
    // Values beyond int's range are not read as an int.
    WithParser("(KV2_RX (SampleRate 1e12) (N nan))", [](ParamParser& p) {
        int i = 5;
        double d = 0;
        EXPECT_TRUE(p.GetValue(d, "KV2_RX.SampleRate"));
        EXPECT_EQ(d, 1e12);
        EXPECT_FALSE(p.GetValue(i, "KV2_RX.SampleRate"));
        EXPECT_FALSE(p.GetValue(i, "KV2_RX.N"));
        EXPECT_EQ(i, 5);
    });
}

TEST(ParamParser, BooleansAndStrings) {
    WithParser("(KV2_RX (On True) (Off False) (Low true) (Corner \"Typ\") (Empty \"\") (Bare Typ) (Doubled \"\"Typ\"\") "
               "(One x) (EQ 3))",
               [](ParamParser& p) {
                   bool b = false;
                   EXPECT_TRUE(p.GetValue(b, "KV2_RX.On"));
                   EXPECT_TRUE(b);
                   EXPECT_TRUE(p.GetValue(b, "KV2_RX.Off"));
                   EXPECT_FALSE(b);
                   b = true;
                   EXPECT_FALSE(p.GetValue(b, "KV2_RX.Low"));
                   EXPECT_FALSE(p.GetValue(b, "KV2_RX.EQ"));
                   EXPECT_TRUE(b);

                   struct { const char* path; const char* expected; } strings[] = {
                       {"KV2_RX.Corner", "Typ"}, {"KV2_RX.Empty", ""}, {"KV2_RX.Bare", "y"},
                       {"KV2_RX.Doubled", "\"Typ\""}, {"KV2_RX.Low", "ru"}};
                   char* s = nullptr;
                   for (const auto& c : strings) {
                       ASSERT_TRUE(p.GetValue(s, c.path)) << c.path;  // each replaces the previous array
                       EXPECT_STREQ(s, c.expected);
                   }
                   char* before = s;
                   for (const char* path : {"KV2_RX.EQ", "KV2_RX.On", "KV2_RX.Missing", "KV2_RX.One"})
                       EXPECT_FALSE(p.GetValue(s, path)) << path;
                   EXPECT_EQ(s, before);
                   delete[] s;
               });
}

TEST(ParamParser, InvalidTextAndTreeShape) {
    for (const char* bad : {"", "KV2_RX (EQ 3)", "(KV2_RX (EQ 3)) (X 1)", "(KV2_RX)"}) {
        WithParser(bad, [&](ParamParser& p) {
            EXPECT_FALSE(p.m_bIsValid) << bad;
            double d = 1.5;
            bool b = true;
            char* s = nullptr;
            EXPECT_FALSE(p.GetValue(d, "KV2_RX.EQ"));
            EXPECT_FALSE(p.GetValue(b, "KV2_RX.EQ"));
            EXPECT_FALSE(p.GetValue(s, "KV2_RX.EQ"));
            EXPECT_EQ(p.GetLeaf("KV2_RX.EQ"), nullptr);
            EXPECT_EQ(d, 1.5);
        });
    }
    WithParser(nullptr, [](ParamParser& p) { EXPECT_FALSE(p.m_bIsValid); });

    WithParser("(A (B 1) (S (C 2)) (T (U (D 3))))", [](ParamParser& p) {
        ASSERT_TRUE(p.m_bIsValid);
        const BRANCH_STRUCT* root = static_cast<const BRANCH_STRUCT*>(p.m_pOutTree->pNodes[0].pData);
        const BRANCH_STRUCT* t = static_cast<const BRANCH_STRUCT*>(root->pChildren[2].pData);
        EXPECT_TRUE(p.IsParamLeafBranch(root));
        EXPECT_TRUE(p.IsParamLeafBranch(static_cast<const BRANCH_STRUCT*>(root->pChildren[1].pData)));
        EXPECT_FALSE(p.IsParamLeafBranch(t));
        EXPECT_FALSE(p.IsParamLeafBranch(nullptr));

        LEAF_STRUCT* d = p.GetLeaf("A.T.U.D");
        ASSERT_NE(d, nullptr);
        EXPECT_STREQ(d->pszName, "D");
        EXPECT_EQ(p.FindLeafWithName(t, "T.U.D", ""), d);
        EXPECT_EQ(p.FindLeafWithName(t, "A.T.U.D", "A"), d);
        EXPECT_EQ(p.FindLeafWithName(t, "A.T.U.D", ""), nullptr);
        EXPECT_EQ(p.FindLeafWithName(nullptr, "A.B", ""), nullptr);
        EXPECT_EQ(p.GetLeaf("A.B"), p.m_pOutTree->pNodes[1].pData);
    });
}

TEST(ParamParser, SimulatorStrings) {
    const char* texts[] = {
        "(KV2_RX\n\t(Init_Returns_Impulse False)\n\t(GetWave_Exists True)\n\t(SampleRate 2e11)\n\t(EQ 12)\n"
        "\t(SamplesPerBit\t64)\n\t(Corner \"Slow\")\n\t(Model_Specific (Gain 1.5) (Mode \"Adaptive\"))\n)\n",
        "  (KV2_RX (SampleRate 200000000000.0)(EQ 12)(SamplesPerBit 64)(Corner \"\"Slow\"\")(Ignored (X 1)))",
    };
    const char* corners[] = {"Slow", "\"Slow\""};
    for (int k = 0; k < 2; ++k) {
        WithParser(texts[k], [&](ParamParser& p) {
            double rate = 0;
            int eq = 0, spb = 0;
            char* corner = nullptr;
            ASSERT_TRUE(p.m_bIsValid) << texts[k];
            EXPECT_TRUE(p.GetValue(rate, "KV2_RX.SampleRate"));
            EXPECT_EQ(rate, 2e11);
            EXPECT_TRUE(p.GetValue(eq, "KV2_RX.EQ"));
            EXPECT_EQ(eq, 12);
            EXPECT_TRUE(p.GetValue(spb, "KV2_RX.SamplesPerBit"));
            EXPECT_EQ(spb, 64);
            EXPECT_TRUE(p.GetValue(corner, "KV2_RX.Corner"));
            EXPECT_STREQ(corner, corners[k]);
            delete[] corner;
        });
    }
    WithParser(texts[0], [](ParamParser& p) {
        double gain = 0;
        EXPECT_TRUE(p.GetValue(gain, "KV2_RX.Model_Specific.Gain"));
        EXPECT_EQ(gain, 1.5);
    });
}

TEST(ParamParser, DeepAndWideTexts) {
    // 100000 nested groups: the lookup of a shallow path must not descend
    // through them; a path that does go down 300 levels still answers.
    const int depth = 100000;
    std::string deep;
    for (int i = 0; i < depth; ++i) deep += "(a";
    deep += " 7";
    deep += std::string(depth, ')');
    WithParser(deep.c_str(), [](ParamParser& p) {
        ASSERT_TRUE(p.m_bIsValid);
        int v = 0;
        EXPECT_FALSE(p.GetValue(v, "a.EQ"));
    });
    std::string path = "a";
    std::string medium;
    for (int i = 0; i < 300; ++i) medium += "(a";
    for (int i = 1; i < 300; ++i) path += ".a";
    medium += " 7" + std::string(300, ')');
    WithParser(medium.c_str(), [&](ParamParser& p) {
        int v = 0;
        EXPECT_TRUE(p.GetValue(v, path.c_str()));
        EXPECT_EQ(v, 7);
    });

    std::string wide = "(KV2_RX";
    for (int i = 0; i < 5000; ++i) wide += " (P" + std::to_string(i) + " " + std::to_string(i) + ")";
    wide += ")";
    WithParser(wide.c_str(), [](ParamParser& p) {
        int v = 0;
        EXPECT_TRUE(p.GetValue(v, "KV2_RX.P4999"));
        EXPECT_EQ(v, 4999);
    });
}
