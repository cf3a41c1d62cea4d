// JitterGenerator: setup messages and their order, the draws at mid-bit and
// their clamp, the block form against Run with real jitter, and the
// zero-jitter delay.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "SameBits.h"
#include "blocks/JitterGenerator.h"

using namespace TesselModelBuilder;
using kv2_test::Hex;

namespace {

// A block wired to one-sample input and output cells.
struct Rig {
    JitterGenerator block;
    double in = 0.0, out = 0.0;
    Rig(int spb, double ts, int latency, double rj, double dj) {
        block.SamplesPerBit = spb, block.SampleInterval = ts, block.Latency = latency, block.RJ = rj, block.DJ = dj;
        block.input.SetBuffer(&in, 1, 1, 0), block.output.SetBuffer(&out, 1, 1, 0);
    }
    bool Start() { return block.Setup() && block.Initialize(); }
    double Step(double x) {
        in = x;
        EXPECT_TRUE(block.Run());
        return out;
    }
};

}  // namespace

TEST(JitterGenerator, SetupChecksInOrderWithExactMessages) {
    const std::string spb = "SamplesPerBit must be larger than or equal to 4.\n",
                      lat = "Latency must be lager than or equal to 0 and smaller than or equal to SamplesPerBit / 2.\n",
                      rj = "RJ must be larger than or equal to 0.\n", dj = "DJ must be larger than or equal to 0.\n";
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const struct { int spb; double ts; int latency; double rj, dj; std::string message; int W; } cases[] = {
        {3, -1.0, 9, -1.0, -1.0, spb, 5},  // first failure wins, W untouched
        {16, 1e-10, -1, 0.0, 0.0, lat, 5},
        {16, 1e-10, 8, -1e-15, -1.0, rj, 17},  // W is set before the jitter checks
        {16, 1e-10, 8, 0.0, -1e-15, dj, 17},
        {16, nan, 8, 0.0, 0.0, "", 17},  // NaN is not rejected
    };
    for (const auto& c : cases) {
        Rig rig(c.spb, c.ts, c.latency, c.rj, c.dj);
        testing::internal::CaptureStderr();
        EXPECT_EQ(rig.block.Setup(), c.message.empty()) << c.message;
        EXPECT_EQ(testing::internal::GetCapturedStderr(), c.message);
        EXPECT_EQ(rig.block.m_iHistoryLength, c.W) << c.message;
    }
}

TEST(JitterGenerator, OffsetsAreDrawnAtMidBitAndClampedToLatencyMinusOneSamples) {
    const double Ts = 1e-10;
    for (const double rj : {1.0, 0.0}) {  // one draw per bit at mid-bit, RJ or DJ far beyond the bound
        Rig rig(16, Ts, 8, rj, 1.0 - rj);
        ASSERT_TRUE(rig.Start());
        CNormal normal(0.0, 1.0, 5489);
        CUniform uniform(-(1.0 - rj) * 0.5, 0.5 * (1.0 - rj), 5489);
        int positive = 0;
        for (int n = 0; n < 16 * 12; ++n) {
            rig.Step(1.0);
            if (rig.block.m_iBitPhase != 8) continue;
            const double r = normal(), u = uniform(), bound = r * rj + u > 0.0 ? Ts * 7 : (-Ts) * 7;
            EXPECT_EQ(rig.block.m_dJitter, bound) << "sample " << n;
            positive += bound > 0.0;
        }
        EXPECT_TRUE(positive > 0 && positive < 12) << positive;
        EXPECT_TRUE(rig.block.Finalize());
        EXPECT_FALSE(rig.block.Run());  // finalized: nothing to draw with
    }
}

TEST(JitterGenerator, BlockFormMatchesRunWithRealJitter) {
    // Latencies from 0 (single-entry history) to 8, block sizes from 1 to
    // several hundred, every instruction set.
    EXPECT_EQ(SupportedSimdLevels().back(), DetectSimdLevel());  // every level this processor has is run
    for (SimdLevel level : SupportedSimdLevels()) {
        for (int latency : {0, 1, 3, 8}) {
            Rig perSample(20, 1e-12, latency, 0.3e-12, 1.5e-12), block(20, 1e-12, latency, 0.3e-12, 1.5e-12);
            ASSERT_TRUE(perSample.Start() && block.Start());
            std::mt19937 rng(77);
            std::normal_distribution<double> normal(0.0, 1.0);
            std::vector<double> xs(3000), expected, got(xs.size());
            for (size_t i = 0; i < xs.size(); ++i) xs[i] = std::sin(0.157 * i) + 0.2 * normal(rng);
            for (double x : xs) expected.push_back(perSample.Step(x));
            for (size_t at = 0, step = 1; at < xs.size(); at += step, step = step * 3 % 401 + 1)
                ASSERT_TRUE(block.block.RunBlock(xs.data() + at, got.data() + at, std::min(step, xs.size() - at), level));
            ASSERT_TRUE(kv2_test::SameBits(got, expected)) << SimdLevelName(level) << " latency " << latency;
            Rig still(20, 1e-12, latency, 0.0, 0.0);  // no jitter: a delay of Latency samples
            ASSERT_TRUE(still.Start());
            for (int n = 0; n < 300; ++n)
                ASSERT_NEAR(still.Step(xs[n]), n < latency ? 0.0 : xs[n - latency], 1e-14) << "latency " << latency << " n " << n;
            EXPECT_EQ(block.out, perSample.out);
            EXPECT_EQ(block.block.m_vTimes, perSample.block.m_vTimes);
            EXPECT_EQ(block.block.m_vJitters, perSample.block.m_vJitters);
            EXPECT_EQ(block.block.m_pNormal->operator()(), perSample.block.m_pNormal->operator()());
        }
    }
}

// Initialize can run out of memory after the first history was made: a block
// left with any history missing must refuse to run, not read through it.
TEST(JitterGenerator, RefusesToRunWithAHistoryMissing) {
    for (int missing = 0; missing < 4; ++missing) {
        Rig rig(32, 1e-12, 8, 0.0, 0.0);
        ASSERT_TRUE(rig.Start());
        JitterGenerator& b = rig.block;
        if (missing == 0) b.m_vSamples.clear();
        if (missing == 1) b.m_vTimes.clear();
        if (missing == 2) b.m_vPhases.clear();
        if (missing == 3) b.m_vJitters.clear();
        rig.in = 0.5;
        EXPECT_FALSE(b.Run()) << "history " << missing << " missing";
    }
}
