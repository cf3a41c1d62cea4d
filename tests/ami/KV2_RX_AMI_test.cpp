// The built KV2_RX_x64.so as a simulator drives it: the message AMI_Init
// hands out and what it leaves alone, and the settled response of every
// setting. (Block sizes: ModelRun_test; instances side by side: the C host and
// the concurrency test; clock times and bad arguments: the hostile host.)
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "AmiLibrary.h"
#include "BesselReference.h"
#include "CtleTable.h"
#include "SameBits.h"

using namespace ami_test;
using kv2_test::SameBits;

namespace {

class KV2_RX_AMI : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(Ami().Loaded()) << dlerror(); }
};

}  // namespace

TEST_F(KV2_RX_AMI, InitHandsOutOnlyLookupMessagesAndWritesNothingElse) {
    const std::string allFour = NotFound("SampleRate") + NotFound("EQ") + NotFound("SamplesPerBit") + NotFound("Corner");
    // Texts naming none of the four parameters (one not even a tree), then all four.
    for (const char* text : {"(KV2_RX (Other 1))", "not a tree", "(KV2_RX (EQ \"3\"))", "(X (EQ 3))", kFull}) {
        char sentinel[] = "untouched";
        std::vector<double> impulse(128);
        for (size_t i = 0; i < impulse.size(); ++i) impulse[i] = std::sin(0.1 * i) * 1e-3;
        const std::vector<double> before = impulse;
        std::string parameters = text;
        char *msg = sentinel, *out = sentinel;
        void* handle = nullptr;
        EXPECT_EQ(Ami().init(impulse.data(), 64, 1, 1e-12, 32e-12, parameters.data(), &out, &handle, &msg), 1);
        EXPECT_EQ(std::string(msg), text == kFull ? "untouched" : allFour) << text;
        EXPECT_EQ(out, sentinel);
        EXPECT_TRUE(SameBits(impulse, before));
        EXPECT_EQ(Ami().close(handle), 1);
    }
}

TEST_F(KV2_RX_AMI, AStepSettlesAtEachSettingsDcGainTimesTheFirGain) {
    double fir = 0.0;  // the Bessel FIR's DC gain, from an independent design
    for (double tap : kv2_test::BesselTaps(1e11, 4, 64, 1e12, 128)) fir += tap;
    for (int k = 0; k < 16; ++k) {
        const std::vector<double> wave =
            Equalized("(KV2_RX (EQ " + std::to_string(k) + ") (SamplesPerBit 32))", std::vector<double>(20000, 1.0));
        EXPECT_NEAR(wave.back(), kv2_test::CtleDcGain(kv2_test::kCtle[k]) * fir, 1e-9) << "setting " << k;
        EXPECT_EQ(wave[5], 0.0);  // the jitter block's delay: nothing arrives yet
    }
}
