// The block path against the per-sample path: every equalizer setting,
// several sample rates, random and PRBS waveforms, awkward splits, every
// instruction set this processor has. Output bits and the live blocks' state
// must be identical.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "model/KV2_RX.h"

using namespace TesselModelBuilder;

namespace {

struct Model {
    Model(int eq, double sampleRate) : m(std::make_unique<KV2_RX>()) {
        m->input.SetBuffer(&in, 1, 1, 0);
        m->output.SetBuffer(&out, 1, 1, 0);
        m->EQ = eq;
        m->SampleRate = sampleRate;
        m->SamplesPerBit = 32;
        ok = m->Setup() && m->Initialize();
    }
    void PerSample(double* wave, size_t n) {
        for (size_t i = 0; i < n; ++i) {
            in = wave[i];
            ASSERT_TRUE(m->Run());
            wave[i] = out;
        }
    }
    std::unique_ptr<KV2_RX> m;
    double in = 0.0, out = 0.0;
    bool ok = false;
};

std::vector<double> Noise(size_t n, unsigned seed) {
    std::mt19937 rng(seed);
    std::normal_distribution<double> normal(0.0, 0.4);
    std::vector<double> xs(n);
    for (double& x : xs) x = normal(rng);
    return xs;
}

// PRBS7 NRZ at 32 samples per bit with finite edges, so that the jitter
// block's bit phase sees real transitions.
std::vector<double> Prbs(size_t n) {
    std::vector<double> xs(n);
    unsigned state = 0x7f;
    double level = 0.0;
    for (size_t i = 0; i < n; ++i) {
        if (i % 32 == 0) {
            const unsigned bit = ((state >> 6) ^ (state >> 5)) & 1u;
            state = ((state << 1) | bit) & 0x7fu;
            level = bit ? 0.4 : -0.4;
        }
        xs[i] = i == 0 ? level : 0.8 * xs[i - 1] + 0.2 * level;
    }
    return xs;
}

bool SameBits(const std::vector<double>& a, const std::vector<double>& b) {
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(double)) == 0;
}

template <typename T>
bool SameBits(const T* a, const T* b, size_t n) {
    return std::memcmp(a, b, n * sizeof(T)) == 0;
}

// The state that n firings leave in the live branch must not depend on the path.
void ExpectSameLiveState(KV2_RX& a, KV2_RX& b, int eq) {
    SDomainIIR& fa = a.Subnetwork1.Filter(eq);
    SDomainIIR& fb = b.Subnetwork1.Filter(eq);
    EXPECT_TRUE(SameBits(fa.m_pState1, fb.m_pState1, fa.m_iNumBiquads));
    EXPECT_TRUE(SameBits(fa.m_pState2, fb.m_pState2, fa.m_iNumBiquads));
    EXPECT_TRUE(SameBits(a.J1.m_vSamples, b.J1.m_vSamples));
    EXPECT_TRUE(SameBits(a.J1.m_vTimes, b.J1.m_vTimes));
    EXPECT_TRUE(SameBits(a.J1.m_vJitters, b.J1.m_vJitters));
    EXPECT_EQ(a.J1.m_vPhases, b.J1.m_vPhases);
    EXPECT_EQ(a.J1.m_iSampleCount, b.J1.m_iSampleCount);
    EXPECT_EQ(a.J1.m_iBitPhase, b.J1.m_iBitPhase);
    EXPECT_EQ(a.J1.m_dPrevSample, b.J1.m_dPrevSample);
    EXPECT_TRUE(SameBits(a.B2.m_vDelayLine, b.B2.m_vDelayLine));
    EXPECT_EQ(a.B2.m_iDelayIndex, b.B2.m_iDelayIndex);
    EXPECT_EQ(a.Subnetwork1.C9.iSampleCount, b.Subnetwork1.C9.iSampleCount);
    const double* ports[][2] = {
        {a.m_pBuffer_Subnetwork1_M9_output_To_J1_Input, b.m_pBuffer_Subnetwork1_M9_output_To_J1_Input},
        {a.m_pBuffer_J1_Output_To_B2_Input, b.m_pBuffer_J1_Output_To_B2_Input},
        {a.m_pBuffer_B2_Output_To_output, b.m_pBuffer_B2_Output_To_output},
        {a.m_pBuffer_input_To_Subnetwork1_input_output_input, b.m_pBuffer_input_To_Subnetwork1_input_output_input},
    };
    for (auto& p : ports) EXPECT_TRUE(SameBits(p[0], p[1], 1));
}

// Block sizes as hosts send them, including empty and single-sample calls.
const size_t kSplits[] = {1, 0, 813, 7, 1024, 1280, 0, 2049, 3, 5000};

}  // namespace

TEST(KV2_RX_RunBlock, EveryPathGivesThePerSampleBitsAndState) {
    const size_t n = 6000;
    const std::vector<std::vector<double>> waves = {Noise(n, 1234), Prbs(n)};
    for (double rate : {1e12, 5e11, 3.2e11}) {
        for (int eq = 0; eq < 16; ++eq) {
            for (size_t w = 0; w < waves.size(); ++w) {
                Model reference(eq, rate);
                ASSERT_TRUE(reference.ok);
                std::vector<double> expected = waves[w];
                reference.PerSample(expected.data(), n);
                for (SimdLevel level : SupportedSimdLevels()) {
                    SCOPED_TRACE(std::string("rate ") + std::to_string(rate) + " EQ " +
                                 std::to_string(eq) + " wave " + std::to_string(w) + " " +
                                 SimdLevelName(level));
                    Model block(eq, rate);
                    ASSERT_TRUE(block.m->CanRunBlock());
                    std::vector<double> got = waves[w];
                    size_t at = 0;
                    for (size_t i = 0; at < n; ++i) {
                        const size_t m = std::min(kSplits[i % std::size(kSplits)], n - at);
                        block.m->RunBlock(got.data() + at, m, level);
                        at += m;
                    }
                    ASSERT_TRUE(SameBits(got, expected));
                    ExpectSameLiveState(*block.m, *reference.m, eq);
                    EXPECT_EQ(block.out, reference.out);
                }
            }
        }
    }
}

TEST(KV2_RX_RunBlock, AlternatingThePathsChangesNothing) {
    const size_t n = 5000;
    const std::vector<double> wave = Prbs(n);
    Model reference(7, 1e12);
    std::vector<double> expected = wave;
    reference.PerSample(expected.data(), n);
    for (SimdLevel level : SupportedSimdLevels()) {
        Model mixed(7, 1e12);
        std::vector<double> got = wave;
        size_t at = 0;
        for (size_t i = 0; at < n; ++i) {
            const size_t m = std::min<size_t>(i % 2 ? 37 : 700, n - at);
            if (i % 2)
                mixed.PerSample(got.data() + at, m);
            else
                mixed.m->RunBlock(got.data() + at, m, level);
            at += m;
        }
        EXPECT_TRUE(SameBits(got, expected)) << SimdLevelName(level);
        ExpectSameLiveState(*mixed.m, *reference.m, 7);
    }
}

TEST(KV2_RX_RunBlock, OnlyAnInitialisedModelWithASettingInRangeTakesIt) {
    Model inRange(15, 1e12);
    EXPECT_TRUE(inRange.m->CanRunBlock());
    for (int eq : {16, -1}) EXPECT_FALSE(Model(eq, 1e12).m->CanRunBlock());
    KV2_RX fresh;
    EXPECT_FALSE(fresh.CanRunBlock());  // never wired
}
