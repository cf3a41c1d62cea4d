// AmiFile and ParameterString: the kit's .ami file read with the project's
// parser, the parameter string a simulator would build from it, and the
// checks on overrides.
#include "tools/AmiFile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>

#include "amiparams/ParamParser.h"
#include "tools/HostError.h"
#include "tools/ParameterString.h"

using amihost::AmiFile;
using amihost::AmiParameter;
using amihost::ExitCode;
using amihost::HostError;
using amihost::ParameterString;

TEST(AmiFile, KitDeclaresATimeDomainReceiverAndItsFourParameters) {
    const AmiFile kit = AmiFile::Load(KIT_AMI_PATH);
    EXPECT_EQ(kit.RootName(), "KV2_RX");
    const struct { const char* name; const char* value; } reserved[] = {
        {"AMI_Version", "\"7.0\""}, {"Init_Returns_Impulse", "False"}, {"GetWave_Exists", "True"}};
    for (const auto& r : reserved) {
        const AmiParameter* p = kit.FindReserved(r.name);
        ASSERT_NE(p, nullptr) << r.name;
        EXPECT_EQ(p->sUsage, "Info") << r.name;
        EXPECT_EQ(p->sDefault, r.value) << r.name;
    }
    const struct { const char* name; const char* type; const char* def; } params[] = {
        {"SampleRate", "Float", "1e12"}, {"EQ", "Integer", "0"}, {"SamplesPerBit", "Integer", "100"},
        {"Corner", "String", "\"Typ\""}};
    ASSERT_EQ(kit.ModelSpecific().size(), 4u);
    for (size_t i = 0; i < 4; ++i) {
        const AmiParameter& p = kit.ModelSpecific()[i];
        EXPECT_EQ(p.sPath, params[i].name);
        EXPECT_EQ(p.sUsage, "In") << p.sPath;
        EXPECT_EQ(p.sType, params[i].type) << p.sPath;
        EXPECT_EQ(p.sDefault, params[i].def) << p.sPath;
        EXPECT_FALSE(p.sDescription.empty()) << p.sPath;
    }
    EXPECT_EQ(kit.Find("EQ")->vFormat, (std::vector<std::string>{"0", "0", "15"}));
    EXPECT_NE(kit.Find("SamplesPerBit")->sDescription.find("below 16"), std::string::npos);
}

TEST(AmiFile, KitDefaultsReadBackThroughTheModelsLookup) {
    const ParameterString params(AmiFile::Load(KIT_AMI_PATH));
    const std::string text = params.Text();
    EXPECT_EQ(text, "(KV2_RX (SampleRate 1e12) (EQ 0) (SamplesPerBit 100) (Corner \"Typ\"))");
    // The model reads these paths with these types: every lookup must hit.
    TesselModelBuilder::AMI::ParamParser parser(text.c_str());
    double rate = 0.0;
    int eq = -1, spb = 0;
    char* corner = nullptr;
    EXPECT_TRUE(parser.GetValue(rate, "KV2_RX.SampleRate"));
    EXPECT_TRUE(parser.GetValue(eq, "KV2_RX.EQ"));
    EXPECT_TRUE(parser.GetValue(spb, "KV2_RX.SamplesPerBit"));
    ASSERT_TRUE(parser.GetValue(corner, "KV2_RX.Corner"));
    EXPECT_EQ(rate, 1e12);
    EXPECT_EQ(eq, 0);
    EXPECT_EQ(spb, 100);
    EXPECT_STREQ(corner, "Typ");
    delete[] corner;
}

TEST(AmiFile, CommentsGroupsOlderFormatsAndLongBlanks) {
    // "|" comments, a nested group, the older (Format ...) form, an output
    // parameter (left out of the string), a List default, and a whitespace
    // run longer than the parser's 120-character limit.
    const std::string text = "| header comment (with a parenthesis\n"
                             "(M (Reserved_Parameters (AMI_Version (Usage Info) (Type String) (Value \"7.0\")))\n"
                             " (Model_Specific" + std::string(200, ' ') +
                             "  (A (Usage In) (Type Integer) (Format Range 5 0 9))  | typ 5\n"
                             "  (G (B (Usage InOut) (Type Float) (Value 2.5))\n"
                             "     (C (Usage In) (Type String) (List \"x|y\" \"z\")))\n"
                             "  (Out1 (Usage Out) (Type Float) (Value 0))\n"
                             "  (D (Usage In) (Type Boolean) (Default True) (List True False))))\n";
    const AmiFile f = AmiFile::Parse(text, "test.ami");
    ASSERT_EQ(f.ModelSpecific().size(), 5u);
    EXPECT_EQ(f.ModelSpecific()[2].sPath, "G.C");
    EXPECT_EQ(f.Find("C")->sDefault, "\"x|y\"");
    ParameterString p(f);
    EXPECT_EQ(p.Text(), "(M (A 5) (G (B 2.5) (C \"x|y\")) (D True))");
    p.Set("G.C", "z");
    p.SetAssignment("A=9");
    EXPECT_EQ(p.Text(), "(M (A 9) (G (B 2.5) (C \"z\")) (D True))");
    EXPECT_EQ(p.SweepValues("A"), (std::vector<std::string>{"0", "1", "2", "3", "4", "5", "6", "7", "8", "9"}));
    EXPECT_EQ(p.SweepValues("D"), (std::vector<std::string>{"True", "False"}));
}

TEST(AmiFile, BadFilesAreRefusedWithTheirReason) {
    const struct { const char* text; const char* message; } cases[] = {
        {"(M (Reserved_Parameters (X (Usage Info) (Type Integer) (Value 1)))",
         "t.ami is not a valid .ami file: unbalanced parentheses"},
        {"M (Reserved_Parameters)", "t.ami is not a valid .ami file: it does not start with \"(\""},
        {"(M (Model_Specific (A (Usage In) (Type Integer) (Default 1))))",
         "t.ami is not a valid .ami file: it has no Reserved_Parameters section"},
        {"(M (Reserved_Parameters (V (Usage Info) (Type String) (Value \"7.0\"))) "
         "(Model_Specific (A (Usage In) (Type Integer))))",
         "t.ami is not a valid .ami file: parameter A has no default value"},
    };
    for (const auto& c : cases) {
        try {
            AmiFile::Parse(c.text, "t.ami");
            ADD_FAILURE() << "accepted: " << c.text;
        } catch (const HostError& e) {
            EXPECT_EQ(e.Code(), ExitCode::kBadFile);
            EXPECT_STREQ(e.what(), c.message);
        }
    }
}

TEST(ParameterString, OverridesAreCheckedAgainstTheKit) {
    ParameterString p(AmiFile::Load(KIT_AMI_PATH));
    const struct { const char* assignment; const char* message; } bad[] = {
        {"EQ=16", "parameter EQ cannot be 16: its range is 0 to 15"},
        {"EQ=-1", "parameter EQ cannot be -1: its range is 0 to 15"},
        {"EQ=1.5", "parameter EQ cannot be 1.5: it is not an integer"},
        {"SamplesPerBit=15", "parameter SamplesPerBit cannot be 15: its range is 16 to 100000"},
        {"SampleRate=fast", "parameter SampleRate cannot be fast: it is not a number"},
        {"Corner=Best", "parameter Corner cannot be Best: it must be one of \"Typ\", \"Slow\", \"Fast\""},
        {"Gain=2", "unknown input parameter Gain (the model takes: SampleRate, EQ, SamplesPerBit, Corner)"},
        {"EQ", "--set takes NAME=VALUE, not EQ"},
        {"=3", "--set takes NAME=VALUE, not =3"},
    };
    for (const auto& b : bad) {
        try {
            p.SetAssignment(b.assignment);
            ADD_FAILURE() << "accepted: " << b.assignment;
        } catch (const HostError& e) {
            EXPECT_EQ(e.Code(), ExitCode::kBadParameter);
            EXPECT_STREQ(e.what(), b.message);
        }
    }
    p.SetAssignment("EQ=15");
    p.SetAssignment("Corner=Fast");
    p.SetAssignment("SampleRate=5e11");
    EXPECT_EQ(p.Text(), "(KV2_RX (SampleRate 5e11) (EQ 15) (SamplesPerBit 100) (Corner \"Fast\"))");
    EXPECT_EQ(p.SweepValues("EQ").size(), 16u);
}

TEST(AmiFile, KitIbisFileNamesTheLibraryAndTheParameterFile) {
    std::ifstream ibs(std::string(KIT_AMI_PATH).substr(0, std::string(KIT_AMI_PATH).rfind('/')) + "/KV2_RX.ibs");
    ASSERT_TRUE(ibs.good());
    std::string line, section;
    std::vector<std::string> executable;
    bool ended = false;
    while (std::getline(ibs, line)) {
        if (line.rfind("[", 0) == 0) section = line.substr(0, line.find(']') + 1);
        if (section == "[Algorithmic Model]" && line.rfind("Executable", 0) == 0) {
            std::istringstream words(line);
            for (std::string w; words >> w;) executable.push_back(w);
        }
        ended = ended || section == "[End Algorithmic Model]";
    }
    EXPECT_TRUE(ended);
    ASSERT_EQ(executable.size(), 4u);
    // Loaders split the platform token on underscores: OS, compiler, bits.
    EXPECT_EQ(executable[1], "Linux_gcc12_64");
    EXPECT_EQ(std::count(executable[1].begin(), executable[1].end(), '_'), 2);
    const std::string so = KV2_RX_SO_PATH;
    EXPECT_EQ(executable[2], so.substr(so.rfind('/') + 1));
    EXPECT_EQ(executable[3], "KV2_RX.ami");
}
