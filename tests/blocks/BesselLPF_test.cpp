// BesselLPF: setup messages and their order, the taps against a naive design
// (Horner-evaluated polynomial, direct inverse DFT), the FIR against a naive
// convolution bit for bit, the delay line across re-Initialize, and the FFT
// routines against a direct DFT.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "blocks/BesselLPF.h"

using namespace TesselModelBuilder;
using cd = std::complex<double>;
using cld = std::complex<long double>;

namespace {

std::string Hex(double v) { char t[40]; std::snprintf(t, sizeof t, "%a", v); return t; }

// Frequency-sampled design written out directly: the Bessel polynomial by
// Horner on the grid, h by a direct inverse DFT, taps h[-T/2 .. (T-1)/2].
std::vector<double> NaiveTaps(double B, int order, int T, double fs, int N) {
    static const std::vector<std::vector<long double>> poly = {
        {1, 1}, {1, 3, 3}, {1, 6, 15, 15}, {1, 10, 45, 105, 105},
        {1, 15, 105, 420, 945, 945}, {1, 21, 210, 1260, 4725, 10395, 10395}};
    const double w0[] = {1.0, 1.361, 1.765, 2.114, 2.427, 2.703};
    std::vector<cld> H(N, 0);
    for (int k = 0; k < N; ++k) {
        if (k == N / 2) continue;
        const cld s(0, (k < N / 2 ? k : k - N) * (long double)fs / N / (B / 2) * w0[order - 1]);
        cld y = 0;
        for (long double c : poly[order - 1]) y = y * s + c;
        H[k] = poly[order - 1].back() / y;
    }
    std::vector<double> taps;
    for (int m = -T / 2; m < T - T / 2; ++m) {
        cld sum = 0;
        for (int k = 0; k < N; ++k) sum += H[k] * std::polar(1.0L, 2 * M_PIl * k * m / N);
        taps.push_back(static_cast<double>(sum.real() / N));
    }
    return taps;
}

struct Rig {
    BesselLPF block;
    double in = 0.0, out = 0.0;
    Rig(double B, int order, int T, double fs, int N) {
        block.Bandwidth = B, block.BesselOrder = order, block.NumTaps = T, block.SampleRate = fs, block.FFTSize = N;
        block.input.SetBuffer(&in, 1, 1, 0);
        block.output.SetBuffer(&out, 1, 1, 0);
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
        {-1.0, 4, 1e12, 64, 128, "Bandwidth must be >0\n"},
        {1e11, 0, 0.0, 64, 128, "BesselOrder must be in [1,6]\n"},
        {1e11, 7, 1e12, 64, 128, "BesselOrder must be in [1,6]\n"},
        {1e11, 4, 0.0, 2, 128, "SampleRate must be >0\n"},
        {1e11, 4, 1e12, 2, 8, "NumTaps must be >=3\n"},
        {1e11, 4, 1e12, 300, 512, warn},
        {1e11, 4, 1e12, 300, 8, warn + "FFTSize must be >=16\n"},
        {1e11, 4, 1e12, 300, 300, warn + "NumTaps must be < FFTSize\n"},
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
        {1e11, 4, 5, 1e12, 128},  {1e11, 4, 4, 1e12, 128}, {1e11, 4, 64, 1e12, 128},
        {2e11, 3, 7, 1e12, 32},   {5e10, 1, 9, 1e12, 64},  {1e11, 2, 10, 1e12, 16},
        {3e11, 5, 33, 2e12, 256}, {1e11, 6, 16, 1e12, 64},
    };
    for (const auto& c : cases) {
        Rig rig(c.B, c.order, c.T, c.fs, c.N);
        ASSERT_TRUE(rig.block.Setup() && rig.block.Initialize());
        const std::vector<double> expected = NaiveTaps(c.B, c.order, c.T, c.fs, c.N);
        ASSERT_EQ(rig.block.m_vTaps.size(), expected.size());
        double peak = 0.0;
        for (double v : expected) peak = std::max(peak, std::fabs(v));
        for (int i = 0; i < c.T; ++i)
            EXPECT_NEAR(rig.block.m_vTaps[i], expected[i], 1e-12 * peak)
                << "order " << c.order << " T " << c.T << " N " << c.N << " tap " << i;
    }
}

TEST(BesselLPF, RunIsTheFirSumInTapOrderAndSettlesToTheTapSum) {
    EXPECT_FALSE(Rig(1e11, 4, 64, 1e12, 128).block.Run());  // never designed: nothing to run
    const uint32_t seed = 4242;
    std::mt19937 engine(seed);
    std::uniform_real_distribution<double> level(-1.0, 1.0);
    Rig rig(1e11, 4, 64, 1e12, 128);
    ASSERT_TRUE(rig.block.Setup() && rig.block.Initialize());
    const std::vector<double> taps = rig.block.m_vTaps;
    const int T = 64;
    double tapSum = 0.0;
    for (double v : taps) tapSum += v;
    EXPECT_NEAR(tapSum, 1.0, 1e-3);  // a low-pass passes DC

    std::vector<double> x(T, 1.0);  // a step first, then noise
    for (int n = 0; n < 500; ++n) x.push_back(level(engine));
    for (int t = 0; t < static_cast<int>(x.size()); ++t) {
        double expected = 0.0;
        for (int k = 0; k < T; ++k) expected += taps[k] * (t - k >= 0 ? x[t - k] : 0.0);
        const double got = rig.Step(x[t]);
        ASSERT_EQ(Hex(got), Hex(expected)) << "sample " << t << " seed " << seed;
        EXPECT_TRUE(t != T - 1 || got == tapSum) << Hex(got) << " vs " << Hex(tapSum);
    }

    // Re-Initialize keeps the line and restarts the index; a longer line appends zeros.
    const std::vector<double> line = rig.block.m_vDelayLine;
    ASSERT_TRUE(rig.block.Initialize());
    EXPECT_EQ(rig.block.m_vDelayLine, line);
    double expected = taps[0] * 0.5;
    for (int k = 1; k < T; ++k) expected += taps[k] * line[k];
    EXPECT_EQ(rig.Step(0.5), expected);
    std::vector<double> grown = rig.block.m_vDelayLine;
    grown.resize(70, 0.0);
    rig.block.NumTaps = 70;
    ASSERT_TRUE(rig.block.Initialize());
    EXPECT_EQ(rig.block.m_vDelayLine, grown);
}

TEST(BesselLPF, FftRoutinesMatchADirectDft) {
    const int n = 8;
    std::mt19937 engine(7);
    std::uniform_real_distribution<double> level(-1.0, 1.0);
    std::vector<cd> x(n), kernel(n);
    for (auto* v : {&x, &kernel}) for (cd& c : *v) c = cd(level(engine), level(engine));
    // sign 1: e^{-j 2 pi k m / n}; `scale` divides the result.
    auto dft = [&](const std::vector<cd>& in, int sign, double scale) {
        std::vector<cd> out(n);
        for (int k = 0; k < n; ++k) {
            cld sum = 0;
            for (int m = 0; m < n; ++m) sum += cld(in[m]) * std::polar(1.0L, -sign * 2 * M_PIl * k * m / n);
            out[k] = cd(sum) / scale;
        }
        return out;
    };
    auto near = [](const std::vector<cd>& a, const std::vector<cd>& b, const char* what) {
        for (size_t k = 0; k < a.size(); ++k) EXPECT_LT(std::abs(a[k] - b[k]), 1e-13) << what << " bin " << k;
    };
    BesselLPF block;
    for (int sign : {1, -1}) {
        std::vector<cd> raw = x;  // interleaved re, im
        block.fft_rif(reinterpret_cast<double*>(raw.data()), n, sign);
        near(raw, dft(x, sign, 1.0), sign == 1 ? "fft_rif forward" : "fft_rif inverse");
    }
    std::vector<cd> forward = x, inverse = x, inverse2 = x, conv = x, direct(n);
    block.fft_cx(forward, n, 1);
    near(forward, dft(x, 1, 1.0), "fft_cx forward, unscaled");
    block.fft_cx(inverse, n, -1);
    near(inverse, dft(x, -1, n), "fft_cx inverse, scaled by 1/n");
    block.ifft_cx(inverse2, n, -1);
    near(inverse2, dft(x, -1, n), "ifft_cx");
    block.fft_conv(conv, kernel, n);
    for (int t = 0; t < n; ++t)
        for (int m = 0; m < n; ++m) direct[t] += x[m] * kernel[(t - m + n) % n];
    near(conv, direct, "fft_conv");
}
