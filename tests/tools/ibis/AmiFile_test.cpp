// AmiFile and ParameterString: the kit's .ami file read with the project's
// parser, the parameter string a simulator would build from it, and the
// checks on overrides.
#include "tools/ibis/AmiFile.h"

#include <gtest/gtest.h>

#include <string>

#include "tools/base/HostError.h"
#include "tools/ibis/ParameterString.h"

using amihost::AmiFile;
using amihost::ExitCode;
using amihost::HostError;
using amihost::ParameterString;

namespace {

// The HostError that fn throws, as "code: message".
template <typename Fn>
std::string Refusal(Fn fn) {
    try {
        fn();
    } catch (const HostError& e) {
        return std::to_string(static_cast<int>(e.Code())) + ": " + e.what();
    }
    return "accepted";
}

}  // namespace

TEST(AmiFile, KitDeclaresATimeDomainReceiverAndItsFourInputs) {
    // That the model reads every one of them is checked by initialising it
    // with this string (amihost's single run, Host_test).
    const AmiFile kit = AmiFile::Load(KIT_AMI_PATH);
    std::string described = kit.RootName();
    for (const auto* section : {&kit.Reserved(), &kit.ModelSpecific()})
        for (const auto& p : *section)
            described += "; " + p.sPath + " " + p.sUsage + " " + p.sType + " " + p.sDefault + (p.sDescription.empty() ? " ?" : "");
    EXPECT_EQ(described, "KV2_RX; AMI_Version Info String \"7.0\"; Init_Returns_Impulse Info Boolean False; "
                         "GetWave_Exists Info Boolean True; Ignore_Bits Info Integer 100; SampleRate In Float 1e12; "
                         "EQ In Integer 0; SamplesPerBit In Integer 100; Corner In String \"Typ\"");
    EXPECT_EQ(kit.Find("EQ")->vFormat, (std::vector<std::string>{"0", "0", "15"}));
    EXPECT_EQ(ParameterString(kit).Text(), "(KV2_RX (SampleRate 1e12) (EQ 0) (SamplesPerBit 100) (Corner \"Typ\"))");
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
    ParameterString p(f);
    EXPECT_EQ(p.Text(), "(M (A 5) (G (B 2.5) (C \"x|y\")) (D True))");
    p.Set("G.C", "z");
    p.SetAssignment("A=9");
    p.SetAssignment("D=False");
    EXPECT_EQ(p.Text(), "(M (A 9) (G (B 2.5) (C \"z\")) (D False))");
    EXPECT_EQ(p.SweepValues("A"), (std::vector<std::string>{"0", "1", "2", "3", "4", "5", "6", "7", "8", "9"}));
    EXPECT_EQ(p.SweepValues("D"), (std::vector<std::string>{"True", "False"}));
    // A last name shared by two parameters names neither.
    const AmiFile twice = AmiFile::Parse("(M (Reserved_Parameters (V (Usage Info) (Type String) (Value \"7.0\")))"
                                         " (Model_Specific (G (C (Usage In) (Type Integer) (Default 1)))"
                                         " (H (C (Usage In) (Type Integer) (Default 2)))))", "t.ami");
    EXPECT_EQ(twice.Find("C"), nullptr);
    EXPECT_EQ(twice.Find("H.C")->sDefault, "2");
}

TEST(AmiFile, BadFilesAndOverridesAreRefusedWithTheirReason) {
    const int badFile = static_cast<int>(ExitCode::kBadFile), badParameter = static_cast<int>(ExitCode::kBadParameter);
    const struct { const char* text; const char* message; } files[] = {
        {"M (Reserved_Parameters)", "it does not start with \"(\""},
        {"(M (Model_Specific (A (Usage In) (Type Integer) (Default 1))))", "it has no Reserved_Parameters section"},
        {"(M (Reserved_Parameters (V (Usage Info) (Type String) (Value \"7.0\"))) "
         "(Model_Specific (A (Usage In) (Type Integer))))", "parameter A has no default value"},
    };
    for (const auto& c : files)
        EXPECT_EQ(Refusal([&] { AmiFile::Parse(c.text, "t.ami"); }),
                  std::to_string(badFile) + ": t.ami is not a valid .ami file: " + c.message);

    ParameterString p(AmiFile::Load(KIT_AMI_PATH));
    const struct { const char* assignment; const char* message; } overrides[] = {
        {"EQ=-1", "parameter EQ cannot be -1: its range is 0 to 15"},
        {"EQ=1.5", "parameter EQ cannot be 1.5: it is not an integer"},
        {"SamplesPerBit=15", "parameter SamplesPerBit cannot be 15: its range is 16 to 100000"},
        {"SampleRate=fast", "parameter SampleRate cannot be fast: it is not a number"},
        {"Corner=Best", "parameter Corner cannot be Best: it must be one of \"Typ\", \"Slow\", \"Fast\""},
        {"EQ", "--set takes NAME=VALUE, not EQ"},
        {"=3", "--set takes NAME=VALUE, not =3"},
        {"SampleRate=0x1p40", "parameter SampleRate cannot be 0x1p40: it is not a number"},
        {"EQ=0x3", "parameter EQ cannot be 0x3: it is not an integer"},
    };
    for (const auto& c : overrides)
        EXPECT_EQ(Refusal([&] { p.SetAssignment(c.assignment); }), std::to_string(badParameter) + ": " + c.message);
    // Blanks around a value (130 of them would trip the model's line guard) are dropped.
    for (const std::string& good : std::vector<std::string>{"EQ=15", "Corner=Fast", "SampleRate=" + std::string(130, ' ') + "5e11 "})
        p.SetAssignment(good);
    EXPECT_EQ(p.Text(), "(KV2_RX (SampleRate 5e11) (EQ 15) (SamplesPerBit 100) (Corner \"Fast\"))");
    EXPECT_EQ(p.SweepValues("EQ").size(), 16u);
    // The widest Integer Range is counted without overflow and refused by its size.
    ParameterString wide(AmiFile::Parse("(M (Reserved_Parameters (AMI_Version (Usage Info) (Type String) (Value \"7.0\")))"
                                        " (Model_Specific (N (Usage In) (Type Integer) "
                                        "(Range 0 -9223372036854775808 9223372036854775807) (Default 0))))", "w.ami"));
    EXPECT_EQ(Refusal([&] { wide.SweepValues("N"); }),
              std::to_string(badParameter) + ": cannot sweep N: its Range -9223372036854775808 to "
                                             "9223372036854775807 has more than 1000 values");
}
