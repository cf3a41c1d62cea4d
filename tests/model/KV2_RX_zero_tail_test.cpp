// Runs of exact zeros after activity, through the block path: once the
// selected filter's state settles into its zero-input cycle the block path
// replays it instead of computing. Every output bit and the live state must
// still be those of the per-sample path, at every setting and several rates,
// whatever the block boundaries.
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "SameBits.h"
#include "model/KV2_RX.h"

using namespace TesselModelBuilder;
using kv2_test::SameBits;

namespace {

struct Model {
    Model(int eq, double rate) : m(std::make_unique<KV2_RX>()) {
        m->input.SetBuffer(&in, 1, 1, 0);
        m->output.SetBuffer(&out, 1, 1, 0);
        m->EQ = eq, m->SampleRate = rate, m->SamplesPerBit = 32;
        ok = m->Setup() && m->Initialize() && m->CanRunBlock();
    }
    std::unique_ptr<KV2_RX> m;
    double in = 0.0, out = 0.0;
    bool ok;
};

// An NRZ burst, a held level, zeros long enough for every filter to reach its cycle at
// `rate`, one tiny sample (which must end the replay), zeros, negative zeros
// (not the replayed input), zeros.
std::vector<double> Wave(double rate) {
    std::mt19937 rng(11);
    std::vector<double> wave;
    for (int bit = 0; bit < 12; ++bit) wave.insert(wave.end(), 32, (rng() & 1) ? 0.5 : -0.5);
    wave.resize(wave.size() + 20000, 0.25);  // a step that settles
    wave.resize(wave.size() + static_cast<size_t>(130000 * rate / 1e12), 0.0);
    wave.push_back(3e-300);
    wave.resize(wave.size() + 9000, 0.0);
    wave.resize(wave.size() + 700, -0.0);
    wave.resize(wave.size() + 9000, 0.0);
    return wave;
}

}  // namespace

TEST(KV2_RX_ZeroTail, ReplayedTailsGiveThePerSampleBitsAndState) {
    const size_t splits[] = {1, 4099, 255, 7, 256, 65536, 257, 1000};
    for (double rate : {5e11, 1e12, 2e12}) {
        const std::vector<double> wave = Wave(rate);
        for (int eq = 0; eq < 16; ++eq) {
            SCOPED_TRACE("EQ " + std::to_string(eq) + " at " + std::to_string(rate));
            Model reference(eq, rate), block(eq, rate);
            ASSERT_TRUE(reference.ok && block.ok);
            std::vector<double> want = wave, got = wave;
            for (double& x : want) {
                reference.in = x;
                ASSERT_TRUE(reference.m->Run());
                x = reference.out;
            }
            for (size_t at = 0, k = 0, n; at < got.size(); at += n, ++k) {
                n = std::min(splits[k % 8], got.size() - at);
                block.m->RunBlock(got.data() + at, n, DetectSimdLevel());
            }
            EXPECT_GT(block.m->ZeroInputTail().Period(), 0u) << "the tail never reached its cycle";
            ASSERT_TRUE(SameBits(want, got));
            KV2_RX &a = *reference.m, &b = *block.m;
            EXPECT_TRUE(SameBits(a.Subnetwork1.Filter(eq).m_pState1, b.Subnetwork1.Filter(eq).m_pState1, 2));
            EXPECT_TRUE(SameBits(a.Subnetwork1.Filter(eq).m_pState2, b.Subnetwork1.Filter(eq).m_pState2, 2));
            EXPECT_TRUE(SameBits(a.B2.m_vDelayLine, b.B2.m_vDelayLine));
            // The draws only counted on either path are owed, not lost.
            a.J1.SettleDraws(), b.J1.SettleDraws();
            EXPECT_EQ((*a.J1.m_pNormal)(), (*b.J1.m_pNormal)());
            EXPECT_EQ((*a.J1.m_pUniform)(), (*b.J1.m_pUniform)());
        }
    }
}
