// Tests of the typed lookup by dotted path.
#include "amiparams/ParamParser.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

using TesselModelBuilder::AMI::ParamParser;

namespace {

// What the double, int, bool and string getters read at path, "-" for each
// that fails and leaves its output alone ("!" if it touched it). The string
// getter must free the array it is handed when it replaces it.
std::string Lookups(ParamParser& p, const std::string& path) {
    const char* at = path.c_str();
    double d = -123.0;
    int i = -123;
    bool b = true;
    char *s = new char[1]{}, *given = s;
    std::ostringstream out;
    out << (p.GetValue(d, at) ? std::to_string(d) : d == -123.0 ? "-" : "!") << " "
        << (p.GetValue(i, at) ? std::to_string(i) : i == -123 ? "-" : "!") << " "
        << (p.GetValue(b, at) ? (b ? "true" : "false") : b ? "-" : "!") << " "
        << (p.GetValue(s, at) ? "[" + std::string(s) + "]" : s == given ? "-" : "!");
    delete[] s;
    return out.str();
}

// The parser keeps its tree past its own destruction; the tree is released
// here, which the sanitizer build would flag as a double free had the
// destructor released it.
std::string LookupsIn(const std::string& text, const std::string& path) {
    PTREE kept = nullptr;
    std::string result;
    {
        ParamParser parser(text.c_str());
        result = Lookups(parser, path);
        kept = parser.m_pOutTree;
    }
    FreeParsedTree(&kept);
    return result;
}

}  // namespace

TEST(ParamParser, TypedLookupsByFullPath) {
    const std::string example = "(KV2_RX (EQ 3) (Corner \"Typ\"))";
    const struct { std::string text, path, read; } cases[] = {
        {example, "KV2_RX.EQ", "3.000000 3 - -"},
        {example, "KV2_RX.Corner", "- - - [Typ]"},
        {"(KV2_RX (EQ 3.9))", "KV2_RX.EQ", "3.900000 3 - -"},  // int truncation
        {"(KV2_RX (SampleRate 1e12) (N nan))", "KV2_RX.SampleRate", "1000000000000.000000 - - -"},  // beyond int
        {"(KV2_RX (SampleRate 1e12) (N nan))", "KV2_RX.N", "nan - - -"},
        {"(KV2_RX (EQ 3) (EQ 5))", "KV2_RX.EQ", "3.000000 3 - -"},  // first in document order
        {"(KV2_RX (EQ 4 9))", "KV2_RX.EQ", "4.000000 4 - -"},       // first value only
        {"(KV2_RX (Sub (EQ 3)))", "KV2_RX.Sub.EQ", "3.000000 3 - -"},
        {"((KV2_RX (EQ 3)))", "KV2_RX.EQ", "3.000000 3 - -"},  // a nameless group adds no step
        {"(a (a (a (a 7))))", "a.a.a.a", "7.000000 7 - -"},
        // Booleans are the words True and False; strings lose their first and
        // last characters whatever they are.
        {"(KV2_RX (On True))", "KV2_RX.On", "- - true -"},
        {"(KV2_RX (Off False))", "KV2_RX.Off", "- - false -"},
        {"(KV2_RX (Empty \"\"))", "KV2_RX.Empty", "- - - []"},
        {"(KV2_RX (Bare Typ))", "KV2_RX.Bare", "- - - [y]"},
        {"(KV2_RX (Corner \"\"Slow\"\"))", "KV2_RX.Corner", "- - - [\"Slow\"]"},  // the compact form
        {"(KV2_RX (EQ \"3\"))", "KV2_RX.EQ", "- - - [3]"},
        // Misses: wrong path, branch names, no value, invalid texts.
        {"(KV2_RX (Sub (EQ 3)))", "KV2_RX.EQ", "- - - -"},
        {example, "EQ", "- - - -"},
        {"(KV2_RX (Sub (EQ 3)))", "KV2_RX.Sub", "- - - -"},
        {"(KV2_RX (Sub (EQ 3)))", "KV2_RX.SubXEQ", "- - - -"},  // a branch name is a whole path step
        {"(KV2_RX (EQ ))", "KV2_RX.EQ", "- - - -"},
        {"(KV2_RX (EQ 3)) (X 1)", "KV2_RX.EQ", "- - - -"},
    };
    for (const auto& c : cases) EXPECT_EQ(LookupsIn(c.text, c.path), c.read) << c.text << " " << c.path;
}

TEST(ParamParser, ValidityAndDeepNesting) {
    EXPECT_FALSE(ParamParser("(KV2_RX (EQ 3)) (X 1)").m_bIsValid);
    // 100000 nested groups: a shallow lookup must not descend through them.
    std::string deep;
    for (int i = 0; i < 100000; ++i) deep += "(a";
    deep += " 7" + std::string(100000, ')');
    ParamParser p(deep.c_str());
    int v = 0;
    EXPECT_TRUE(p.m_bIsValid);
    EXPECT_FALSE(p.GetValue(v, "a.EQ"));
    FreeParsedTree(&p.m_pOutTree);
}
