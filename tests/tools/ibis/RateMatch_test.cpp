// RateMatch: the model's SampleRate and SamplesPerBit follow the host's
// timing unless the user set them; a disagreeing override is kept and warned
// about; a value outside the .ami's Range is refused with the way out.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tools/ibis/AmiFile.h"
#include "tools/base/HostError.h"
#include "tools/ibis/ParameterString.h"
#include "tools/ibis/RateMatch.h"

namespace {

const char* kAmi =
    "(M (Reserved_Parameters (AMI_Version (Usage Info) (Type String) (Value \"7.0\")))"
    " (Model_Specific (SampleRate (Usage In) (Type Float) (Range 1e12 1e10 1e13) (Default 1e12))"
    " (SamplesPerBit (Usage In) (Type Integer) (Range 100 16 1000) (Default 100))))";

}  // namespace

TEST(RateMatch, SetsFollowsOrWarnsPerParameter) {
    const amihost::AmiFile ami = amihost::AmiFile::Parse(kAmi, "m.ami");
    const struct {
        std::vector<std::string> sets;
        double dt;
        int spb;
        const char* text;
        std::vector<std::string> warnings;
    } cases[] = {
        {{}, 1e-12, 100, "(M (SampleRate 1e12) (SamplesPerBit 100))", {}},  // defaults already agree: left as written
        {{}, 3.125e-12, 32, "(M (SampleRate 320000000000) (SamplesPerBit 32))", {}},
        {{"SampleRate=3.2e11"}, 3.125e-12, 32, "(M (SampleRate 3.2e11) (SamplesPerBit 32))", {}},
        {{"SampleRate=1e12", "SamplesPerBit=64"}, 3.125e-12, 32, "(M (SampleRate 1e12) (SamplesPerBit 64))",
         {"WARNING: SampleRate is 1e12 but the waveform has 320000000000 samples per second: the model will "
          "equalize at the wrong frequencies",
          "WARNING: SamplesPerBit is 64 but the waveform has 32 samples per bit: the model will equalize at the "
          "wrong frequencies"}},
    };
    for (const auto& c : cases) {
        amihost::ParameterString p(ami);
        for (const std::string& s : c.sets) p.SetAssignment(s);
        const amihost::RateMatchResult r = amihost::RateMatch::Apply(p, ami, c.sets, c.dt, c.spb);
        EXPECT_EQ(p.Text(), c.text);
        EXPECT_EQ(r.vWarnings, c.warnings) << c.text;
        ASSERT_EQ(r.vSettings.size(), 2u);
        EXPECT_EQ(r.vSettings[0].bOverridden, !c.sets.empty());
        EXPECT_EQ(r.vSettings[1].bAgrees, c.warnings.size() < 2);
    }
    // Out of the Range: refused, with the way out.
    amihost::ParameterString p(ami);
    try {
        amihost::RateMatch::Apply(p, ami, {}, 1e-12, 8);
        ADD_FAILURE() << "accepted 8 samples per bit";
    } catch (const amihost::HostError& e) {
        EXPECT_EQ(e.Code(), amihost::ExitCode::kBadParameter);
        EXPECT_EQ(std::string(e.what()),
                  "parameter SamplesPerBit cannot be 8: its range is 16 to 1000 (the host's timing asks for "
                  "SamplesPerBit 8; change --bit-rate / --samples-per-bit, or --set SamplesPerBit yourself)");
    }
    // A model without timing parameters is left alone.
    const amihost::AmiFile plain = amihost::AmiFile::Parse(
        "(S (Reserved_Parameters (AMI_Version (Usage Info) (Type String) (Value \"7.0\")))"
        " (Model_Specific (Mode (Usage In) (Type Integer) (Range 0 0 2) (Default 0))))", "s.ami");
    amihost::ParameterString q(plain);
    EXPECT_TRUE(amihost::RateMatch::Apply(q, plain, {}, 1e-12, 8).vSettings.empty());
    EXPECT_EQ(q.Text(), "(S (Mode 0))");
}
