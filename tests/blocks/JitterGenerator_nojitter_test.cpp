// JitterGenerator without jitter: the block form counts the bit phase through
// runs between sign changes, owes the draws it passes to the generators and
// passes settled values on without interpolating. Against the per-sample
// Run: the same bits, the same state, the same draws taken once settled, and
// exactly one draw per mid-bit sample.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "SameBits.h"
#include "blocks/JitterGenerator.h"

using namespace TesselModelBuilder;
using kv2_test::SameBits;

namespace {

struct Block {
    JitterGenerator j;
    double in = 0.0, out = 0.0;
    Block(int spb, double dj) {
        j.SamplesPerBit = spb, j.SampleInterval = 1e-12, j.Latency = 2, j.RJ = 0.0, j.DJ = dj;
        j.input.SetBuffer(&in, 1, 1, 0);
        j.output.SetBuffer(&out, 1, 1, 0);
        ok = j.Setup() && j.Initialize();
    }
    bool ok;
};

// Runs of random length and level (sign changes anywhere, runs far longer
// than a bit), zeros of both signs, and a long settled stretch.
std::vector<double> Wave(unsigned seed) {
    std::mt19937 rng(seed);
    std::vector<double> xs;
    const double levels[] = {0.5, -0.5, 0.0, -0.0, 1e-310, 0.25};
    while (xs.size() < 6000) xs.insert(xs.end(), rng() % 300 + 1, levels[rng() % 6]);
    xs.insert(xs.end(), 2000, 0.125);
    return xs;
}

}  // namespace

TEST(JitterGenerator_NoJitter, BlockFormMatchesRunAndOwesOneDrawPerMidBit) {
    // DJ is zeroed after Initialize in the last case: the generator still has
    // its width, so nothing may be skipped there.
    const struct { int spb; double dj; bool zeroAfter; } cases[] = {{4, 0.0, false}, {16, 0.0, false}, {37, 0.0, false}, {16, 2e-12, true}};
    for (const auto& c : cases) {
        for (SimdLevel level : SupportedSimdLevels()) {
            SCOPED_TRACE(std::to_string(c.spb) + " " + SimdLevelName(level));
            Block run(c.spb, c.dj), block(c.spb, c.dj);
            ASSERT_TRUE(run.ok && block.ok);
            if (c.zeroAfter) run.j.DJ = block.j.DJ = 0.0;
            const std::vector<double> xs = Wave(c.spb);
            std::vector<double> want, got(xs.size());
            int midBits = 0, phase = 0;
            double prev = 0.0;
            for (double x : xs) {
                run.in = x;
                ASSERT_TRUE(run.j.Run());
                want.push_back(run.out);
                phase = prev * x < 0.0 ? 0 : (phase + 1) % c.spb;
                prev = x;
                midBits += phase == c.spb / 2;
            }
            for (size_t at = 0, n = 1; at < xs.size(); at += n, n = n * 7 % 1013 + 1) {
                n = std::min(n, xs.size() - at);
                ASSERT_TRUE(block.j.RunBlock(xs.data() + at, got.data() + at, n, level));
            }
            ASSERT_TRUE(SameBits(want, got));
            EXPECT_EQ(block.j.m_vPhases, run.j.m_vPhases);
            EXPECT_TRUE(SameBits(block.j.m_vJitters, run.j.m_vJitters));
            EXPECT_EQ(block.out, run.out);
            CNormal normal(0.0, 1.0, 5489);  // the generator's seed, advanced by hand
            for (int k = 0; k < midBits; ++k) normal();
            block.j.SettleDraws();
            run.j.SettleDraws();
            const double next = normal();
            EXPECT_EQ((*block.j.m_pNormal)(), next);
            EXPECT_EQ((*run.j.m_pNormal)(), next);
            int moved = 0;  // samples the offsets moved off the plain two-sample delay
            for (size_t i = 2; i < xs.size(); ++i) moved += std::abs(want[i] - xs[i - 2]) > 1e-6;
            EXPECT_EQ(moved > 0, c.zeroAfter);
        }
    }
}
