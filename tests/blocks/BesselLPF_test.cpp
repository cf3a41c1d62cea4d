// BesselLPF: setup messages and their order, the taps against an independent
// design (Horner-evaluated polynomial, direct inverse DFT), and the FIR sum in
// tap order with the delay line across re-Initialize. (The FIR against the
// block kernels: the receiver's RunBlock test; the circular convolution
// helper is used by no design.)
#include <gtest/gtest.h>
#include <mpfr.h>

#include <cmath>
#include <complex>
#include <string>
#include <vector>

#include "BesselReference.h"
#include "SameBits.h"
#include "blocks/BesselLPF.h"

using namespace TesselModelBuilder;
using kv2_test::Hex;

namespace {

struct Rig {
    BesselLPF block;
    double in = 0.0, out = 0.0;
    Rig(double B, int order, int T, double fs, int N) {
        block.Bandwidth = B, block.BesselOrder = order, block.NumTaps = T, block.SampleRate = fs, block.FFTSize = N;
        block.input.SetBuffer(&in, 1, 1, 0), block.output.SetBuffer(&out, 1, 1, 0);
    }
    double Step(double x) {
        in = x;
        EXPECT_TRUE(block.Run());
        return out;
    }
};

}  // namespace

TEST(BesselLPF, SetupChecksInOrderAndTheWarningDoesNotStopThem) {
    const std::string warn = "NumTaps is >256, simulation speed may be slow\n";
    const struct { double B; int order; double fs; int T, N; std::string messages; } cases[] = {
        {0.0, 0, 0.0, 2, 8, "Bandwidth must be >0\n"},
        {1e11, 7, 1e12, 64, 128, "BesselOrder must be in [1,6]\n"},
        {1e11, 4, 0.0, 2, 128, "SampleRate must be >0\n"},
        {1e11, 4, 1e12, 2, 8, "NumTaps must be >=3\n"},
        {1e11, 4, 1e12, 300, 512, warn},
        {1e11, 4, 1e12, 300, 8, warn + "FFTSize must be >=16\n"},
        {1e11, 4, 1e12, 16, 16, "NumTaps must be < FFTSize\n"},
        {1e11, 1, 1e12, 3, 16, ""},
    };
    for (const auto& c : cases) {
        Rig rig(c.B, c.order, c.T, c.fs, c.N);
        testing::internal::CaptureStderr();
        const bool ok = rig.block.Setup();
        EXPECT_EQ(testing::internal::GetCapturedStderr(), c.messages);
        EXPECT_EQ(ok, c.messages.empty() || c.messages == warn) << c.messages;
    }
}

TEST(BesselLPF, TapsAreTheCentredInverseTransformOfTheBesselSpectrum) {
    const struct { double B; int order, T; double fs; int N; } cases[] = {
        {1e11, 4, 5, 1e12, 128},  {1e11, 4, 64, 1e12, 128},
        {2e11, 3, 7, 1e12, 32},   {5e10, 1, 9, 1e12, 64},  {1e11, 2, 10, 1e12, 16},
        {3e11, 5, 33, 2e12, 256}, {1e11, 6, 16, 1e12, 64},
    };
    for (const auto& c : cases) {
        Rig rig(c.B, c.order, c.T, c.fs, c.N);
        ASSERT_TRUE(rig.block.Setup() && rig.block.Initialize());
        const std::vector<double> expected = kv2_test::BesselTaps(c.B, c.order, c.T, c.fs, c.N);
        ASSERT_EQ(rig.block.m_vTaps.size(), expected.size());
        double peak = 0.0;
        for (double v : expected) peak = std::max(peak, std::fabs(v));
        for (int i = 0; i < c.T; ++i)
            EXPECT_NEAR(rig.block.m_vTaps[i], expected[i], 1e-12 * peak)
                << "order " << c.order << " T " << c.T << " N " << c.N << " tap " << i;
    }
}

TEST(BesselLPF, RunIsTheFirSumInTapOrderAndTheLineSurvivesReinitialisation) {
    // (Run against the block kernels: the receiver's RunBlock test.)
    EXPECT_FALSE(Rig(1e11, 4, 64, 1e12, 128).block.Run());  // never designed: nothing to run
    Rig rig(1e11, 4, 64, 1e12, 128);
    ASSERT_TRUE(rig.block.Setup() && rig.block.Initialize());
    const std::vector<double> taps = rig.block.m_vTaps;
    for (int t = 0; t < 100; ++t) rig.Step(std::sin(0.1 * t));
    // Re-Initialize keeps the line and restarts the index; a longer line appends zeros.
    const std::vector<double> line = rig.block.m_vDelayLine;
    ASSERT_TRUE(rig.block.Initialize());
    EXPECT_EQ(rig.block.m_vDelayLine, line);
    double expected = taps[0] * 0.5;
    for (int k = 1; k < 64; ++k) expected += taps[k] * line[k];
    EXPECT_EQ(Hex(rig.Step(0.5)), Hex(expected));
    std::vector<double> grown = rig.block.m_vDelayLine;
    grown.resize(70, 0.0);
    rig.block.NumTaps = 70;
    ASSERT_TRUE(rig.block.Initialize());
    EXPECT_EQ(rig.block.m_vDelayLine, grown);
}

// The transform's twiddles come from sin of fixed arguments. They must be the
// correctly rounded values, or the taps would depend on the C runtime: every
// stage of every transform length up to 2^23, both directions.
TEST(BesselLPF, TwiddleSinesAreCorrectlyRounded) {
    mpfr_t x;
    mpfr_init2(x, 53);
    int checked = 0;
    for (int sign : {1, -1})
        for (long mmax = 2; mmax <= (1L << 24); mmax <<= 1) {
            const double theta = -6.28318530717959 / (sign * mmax);
            for (double arg : {0.5 * theta, theta}) {
                mpfr_set_d(x, arg, MPFR_RNDN);
                mpfr_sin(x, x, MPFR_RNDN);
                EXPECT_EQ(Hex(std::sin(arg)), Hex(mpfr_get_d(x, MPFR_RNDN))) << "sin(" << Hex(arg) << ")";
                ++checked;
            }
        }
    mpfr_clear(x);
    EXPECT_EQ(checked, 96);
}
