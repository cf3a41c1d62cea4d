// KV2_RX in-process: parameter defaults, the bank's settings and setup
// failures, and the block path against the per-sample path. (Selection of the
// equalizer and its response are checked through the library, ami_tests;
// corner names of every length and teardown by the fuzz replay and the
// sanitizer and valgrind runs of whole sessions.)
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "CtleTable.h"
#include "SameBits.h"
#include "blocks/FusedKernels.h"
#include "model/KV2_RX.h"

using namespace TesselModelBuilder;
using kv2_test::SameBits;

namespace {

// A model with its external ports wired the way the entry points wire them.
struct Harness {
    Harness() : m(std::make_unique<KV2_RX>()) { m->input.SetBuffer(&in, 1, 1, 0), m->output.SetBuffer(&out, 1, 1, 0); }
    // A FIR length other than the model's 64 is set by re-initializing it.
    Harness(int eq, double sampleRate, int firTaps = 64) : Harness() {
        m->EQ = eq, m->SampleRate = sampleRate, m->SamplesPerBit = 32;
        ok = Start();
        if (firTaps != m->B2.NumTaps) m->B2.NumTaps = firTaps, ok = ok && m->B2.Initialize();
    }
    bool Start() { return m->Setup() && m->Initialize(); }
    // Runs every sample of `wave` through Run, in place; false when a Run failed.
    bool PerSample(double* wave, size_t n) {
        bool all = true;
        for (size_t i = 0; i < n; ++i) in = wave[i], all = m->Run() && all, wave[i] = out;
        return all;
    }
    std::vector<double> Process(std::vector<double> wave) {
        EXPECT_TRUE(PerSample(wave.data(), wave.size()));
        return wave;
    }
    std::unique_ptr<KV2_RX> m;
    double in = 0.0, out = 0.0;
    bool ok = false;
};

// PRBS7 NRZ at 32 samples per bit with finite edges (so that the jitter
// block's bit phase sees real transitions), plus Gaussian noise of sigma.
std::vector<double> Wave(size_t n, double sigma) {
    std::mt19937 rng(1234);
    std::normal_distribution<double> normal(0.0, 1.0);
    std::vector<double> xs(n);
    for (size_t i = 0, state = 0x7f; i < n; ++i) {
        if (i % 32 == 0) state = ((state << 1) | (((state >> 6) ^ (state >> 5)) & 1u)) & 0x7fu;
        xs[i] = (i == 0 ? 0.0 : 0.8 * xs[i - 1]) + 0.2 * (state & 1u ? 0.4 : -0.4) + sigma * normal(rng);
    }
    return xs;
}

}  // namespace

TEST(KV2_RX, DefaultsSetUpAndFailuresAreReportedByTheBlocks) {
    Harness defaults;
    const KV2_RX& m = *defaults.m;
    EXPECT_TRUE(m.SampleRate == 1e12 && m.EQ == 0 && m.SamplesPerBit == 100 && std::strcmp(m.Corner, "Typ") == 0);
    EXPECT_FALSE(m.CanRunBlock());  // never wired
    ASSERT_TRUE(defaults.m->Setup());
    for (int k = 0; k < 16; ++k) {  // the bank holds the designed settings to the last digit
        const SDomainIIR& f = defaults.m->Subnetwork1.Filter(k);
        const kv2_test::CtleRow& row = kv2_test::kCtle[k];
        const double* p = f.m_RealPoles.m_pData;
        EXPECT_TRUE(f.m_RealPoles.NumElements() == 3 && p[0] == row.p1 && p[1] == row.p23 && p[2] == row.p23 &&
                    f.m_RealZeros.m_pData[0] == row.z && f.m_Gain == row.gain && f.m_RealZeros.NumElements() == 1) << k;
    }
    const struct { int samplesPerBit; double sampleRate; bool ok; const char* err; } cases[] = {
        {16, 1e12, true, ""},  // the smallest that takes the latency of 8
        {100, -1.0, false, "SampleInterval must be a positive number.\nSampleRate must be >0\n"},
    };
    for (const auto& c : cases) {
        Harness h;
        h.m->SamplesPerBit = c.samplesPerBit;
        h.m->SampleRate = c.sampleRate;
        testing::internal::CaptureStderr();
        EXPECT_EQ(h.Start(), c.ok);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), c.err);
        EXPECT_EQ(h.m->CanRunBlock(), c.ok);
    }
}

TEST(KV2_RX_RunBlock, EveryPathGivesThePerSampleBitsAndLeavesTheSameState) {
    // Every setting, several rates, random and PRBS waves, every instruction
    // set this processor has; block sizes as hosts send them (empty and
    // single-sample calls included, and sizes that leave one group after the
    // pipeline's window moves), or blocks alternating with per-sample runs.
    const size_t W = kPipelineWindow;
    const size_t n = 12000, splits[] = {1, 0, 813, 7, 1024, 1280, 0, W + 36, W + 26, W + 76, 2049, 3, 5000};
    const std::vector<double> waves[] = {Wave(n, 0.4), Wave(n, 0.0)};
    for (double rate : {1e12, 5e11, 3.2e11}) {
        for (int eq = 0; eq < 16; ++eq) {
            for (size_t w = 0; w < 2; ++w) {
                Harness reference(eq, rate);
                ASSERT_TRUE(reference.ok);
                const std::vector<double> expected = reference.Process(waves[w]);
                const double lastOut = reference.out;
                // The FIR's whole line, its oldest slot included: a re-design keeps it.
                const std::vector<double> line = reference.m->B2.m_vDelayLine;
                // Every state a path leaves behind shows in what follows.
                const std::vector<double> next(waves[1 - w].begin(), waves[1 - w].begin() + 300);
                const std::vector<double> expectedNext = reference.Process(next);
                for (SimdLevel level : SupportedSimdLevels()) {
                    for (const bool alternate : {false, true}) {
                        SCOPED_TRACE(std::to_string(rate) + " EQ " + std::to_string(eq) + " " + SimdLevelName(level) + (alternate ? " alternating" : ""));
                        Harness h(eq, rate);
                        ASSERT_TRUE(h.m->CanRunBlock());
                        std::vector<double> got = waves[w];
                        for (size_t i = 0, at = 0, m; at < n; ++i, at += m) {
                            m = std::min(alternate ? (i % 2 ? 37 : 700) : splits[i % std::size(splits)], n - at);
                            if (alternate && i % 2)
                                EXPECT_TRUE(h.PerSample(got.data() + at, m));
                            else
                                h.m->RunBlock(got.data() + at, m, level);
                        }
                        ASSERT_TRUE(SameBits(got, expected));
                        EXPECT_TRUE(SameBits(&h.out, &lastOut, 1) && SameBits(h.m->B2.m_vDelayLine, line));
                        EXPECT_TRUE(SameBits(h.Process(next), expectedNext));
                    }
                }
            }
        }
    }
}

TEST(KV2_RX_RunBlock, LateFiringsAndOtherFilterLengthsKeepThePerSampleBits) {
    // The delay's instants grow with the firing count: far into a run, up to
    // the last count the vector form takes and just past it. The history's
    // instants are set as that many samples would have left them. FIR lengths
    // other than the model's own take the pipeline's general tap schedule.
    const auto lateBy = [](KV2_RX& m, int64_t start) {
        JitterGenerator& j = m.J1;
        const int64_t W = static_cast<int64_t>(j.m_vTimes.size());
        for (int64_t i = 0; i < W; ++i) j.m_vTimes[i] = static_cast<double>(start + i - W) * j.SampleInterval;
        j.m_iSampleCount = start;
    };
    const size_t n = 6000;
    const std::vector<double> wave = Wave(n, 0.4);
    for (const int64_t start : {int64_t{1} << 30, (int64_t{1} << 50) - 8000, (int64_t{1} << 50) + 3}) {
        for (const auto& [rate, firTaps] : {std::pair{1e12, 64}, {3.2e11, 64}, {1e12, 70}, {3.2e11, 13}}) {
            Harness reference(9, rate, firTaps);
            ASSERT_TRUE(reference.ok);
            lateBy(*reference.m, start);
            const std::vector<double> expected = reference.Process(wave);
            for (SimdLevel level : SupportedSimdLevels()) {
                SCOPED_TRACE(std::to_string(start) + " " + std::to_string(rate) + " " + std::to_string(firTaps) + " " +
                             SimdLevelName(level));
                Harness h(9, rate, firTaps);
                lateBy(*h.m, start);
                std::vector<double> got = wave;
                for (size_t at = 0; at < n; at += 1280) h.m->RunBlock(got.data() + at, std::min<size_t>(1280, n - at), level);
                EXPECT_TRUE(SameBits(got, expected));
            }
        }
    }
}
