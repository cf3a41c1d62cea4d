// JitterGenerator without jitter: the block form counts the bit phase through
// runs between sign changes, owes the draws it passes to the generators and
// passes settled values on without interpolating. Against the per-sample
// Run: the same bits, the same state, and exactly one draw per mid-bit sample
// once the owed ones are taken.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "SameBits.h"
#include "blocks/JitterGenerator.h"

using namespace TesselModelBuilder;

TEST(JitterGenerator_NoJitter, BlockFormMatchesRunAndOwesOneDrawPerMidBit) {
    // Runs of random length and level (sign changes anywhere, runs far longer
    // than a bit, zeros of both signs, subnormals whose products
    // underflow to -0.0), then a settled stretch.
    std::mt19937 rng(3);
    std::vector<double> xs;
    const double levels[] = {0.5, -0.5, 0.0, -0.0, 1e-310, -1e-310, 0.25};
    while (xs.size() < 6000) xs.insert(xs.end(), rng() % 300 + 1, levels[rng() % 7]);
    xs.insert(xs.end(), 2000, 0.125);
    // In the last case DJ is zeroed after Initialize: the generator keeps its
    // width, so the offsets are real and nothing may be skipped.
    const struct { int spb; double dj; bool zeroAfter; } cases[] = {{4, 0.0, false}, {16, 0.0, false}, {37, 0.0, false}, {16, 2e-12, true}};
    for (const auto& c : cases) {
        for (SimdLevel level : SupportedSimdLevels()) {
            SCOPED_TRACE(std::to_string(c.spb) + " " + SimdLevelName(level));
            JitterGenerator run, block;
            double in = 0.0, out = 0.0, unused = 0.0;
            for (JitterGenerator* j : {&run, &block}) {
                j->SamplesPerBit = c.spb, j->SampleInterval = 1e-12, j->Latency = 2, j->RJ = 0.0, j->DJ = c.dj;
                j->input.SetBuffer(&in, 1, 1, 0);
                j->output.SetBuffer(j == &run ? &out : &unused, 1, 1, 0);
                ASSERT_TRUE(j->Setup() && j->Initialize());
                if (c.zeroAfter) j->DJ = 0.0;
            }
            std::vector<double> want, got(xs.size());
            int midBits = 0, phase = 0, moved = 0;  // moved: samples off the plain two-sample delay
            for (size_t i = 0; i < xs.size(); ++i) {
                in = xs[i];
                ASSERT_TRUE(run.Run());
                want.push_back(out);
                phase = i > 0 && xs[i - 1] * xs[i] < 0.0 ? 0 : (phase + 1) % c.spb;
                midBits += phase == c.spb / 2;
                moved += i >= 2 && std::abs(out - xs[i - 2]) > 1e-6;
            }
            for (size_t at = 0, n = 1; at < xs.size(); at += n, n = n * 7 % 1013 + 1) {
                n = std::min(n, xs.size() - at);
                ASSERT_TRUE(block.RunBlock(xs.data() + at, got.data() + at, n, level));
            }
            ASSERT_TRUE(kv2_test::SameBits(want, got));
            EXPECT_EQ(block.m_vPhases, run.m_vPhases);
            EXPECT_TRUE(kv2_test::SameBits(block.m_vJitters, run.m_vJitters));
            EXPECT_EQ(moved > 0, c.zeroAfter);
            CNormal normal(0.0, 1.0, 5489);  // the generators' seed, advanced by hand
            for (int k = 0; k < midBits; ++k) normal();
            block.SettleDraws(), run.SettleDraws();
            const double next = normal();
            EXPECT_TRUE((*block.m_pNormal)() == next && (*run.m_pNormal)() == next);
        }
    }
}
