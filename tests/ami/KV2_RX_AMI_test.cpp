// The built KV2_RX_x64.so as a simulator drives it: the message AMI_Init
// hands out and what it leaves alone, streaming invariance, clock times and
// the settled response of every setting.
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

TEST_F(KV2_RX_AMI, BlockBoundariesAndASecondInstanceChangeNothing) {
    const std::vector<double> wave = Nrz(5000, 7, 0.05);
    const std::string eq12 = "(KV2_RX (EQ 12) (SamplesPerBit 32) (Corner \"Slow\"))";
    const std::vector<double> whole = Equalized(kFull, wave), solo12 = Equalized(eq12, wave);
    EXPECT_FALSE(SameBits(whole, wave));
    EXPECT_FALSE(SameBits(whole, solo12));
    for (size_t block : {1u, 7u, 1000u}) EXPECT_TRUE(SameBits(Equalized(kFull, wave, block), whole)) << block;

    // Two live instances called alternately.
    const Instance a = Open(kFull), b = Open(eq12.c_str());
    std::vector<double> wa = wave, wb = wave;
    double clock = 0.0;
    for (size_t at = 0; at < wave.size(); at += 500) {
        EXPECT_EQ(Ami().getWave(wa.data() + at, 500, &clock, nullptr, a.handle), 1);
        EXPECT_EQ(Ami().getWave(wb.data() + at, 500, &clock, nullptr, b.handle), 1);
    }
    EXPECT_TRUE(SameBits(wa, whole));
    EXPECT_TRUE(SameBits(wb, solo12));
    EXPECT_EQ(Ami().close(a.handle) + Ami().close(b.handle), 2);
}

TEST_F(KV2_RX_AMI, OnlyTheFirstClockSlotIsWritten) {
    // 8 samples per bit, then a bit time below half a sample (no samples per bit at all).
    for (const double bitTime : {8e-12, 0.2e-12}) {
        const Instance in = Open(kFull, nullptr, bitTime);
        std::vector<double> wave(1000, 0.1), clocks(1001, 3.0);
        EXPECT_EQ(Ami().getWave(wave.data(), 0, clocks.data(), nullptr, in.handle), 1);
        EXPECT_EQ(clocks[0], 3.0);
        EXPECT_EQ(wave, std::vector<double>(1000, 0.1));
        EXPECT_EQ(Ami().getWave(wave.data(), 1000, clocks.data(), nullptr, in.handle), 1);
        EXPECT_EQ(clocks[0], -1.0);
        EXPECT_EQ(std::vector<double>(clocks.begin() + 1, clocks.end()), std::vector<double>(1000, 3.0));
        EXPECT_EQ(Ami().close(in.handle), 1);
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
