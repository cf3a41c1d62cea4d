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

std::string Hex(double v) {
    char text[40];
    std::snprintf(text, sizeof text, "%a", v);
    return text;
}

// Bessel polynomial coefficients, highest power first, evaluated by Horner.
cld Poly(int order, cld s) {
    static const std::vector<std::vector<long double>> table = {
        {1, 1}, {1, 3, 3}, {1, 6, 15, 15}, {1, 10, 45, 105, 105},
        {1, 15, 105, 420, 945, 945}, {1, 21, 210, 1260, 4725, 10395, 10395}};
    cld y = 0;
    for (long double c : table[order - 1]) y = y * s + c;
    return y;
}

// Frequency-sampled design written out directly: H on the grid, h by a
// direct inverse DFT, taps h[-T/2 .. (T-1)/2].
std::vector<double> NaiveTaps(double B, int order, int T, double fs, int N) {
    const double w0[] = {1.0, 1.361, 1.765, 2.114, 2.427, 2.703};
    std::vector<cld> H(N, 0);
    for (int k = 0; k < N; ++k) {
        if (k == N / 2) continue;
        const long double f = (k < N / 2 ? k : k - N) * (long double)fs / N;
        H[k] = Poly(order, 0) / Poly(order, cld(0, f / (B / 2) * w0[order - 1]));
    }
    auto h = [&](int m) {
        cld sum = 0;
        for (int k = 0; k < N; ++k) sum += H[k] * std::polar(1.0L, 2 * M_PIl * k * m / N);
        return static_cast<double>(sum.real() / N);
    };
    std::vector<double> taps;
    for (int i = 0; i < T; ++i) taps.push_back(h(i - T / 2));
    return taps;
}

struct Rig {
    BesselLPF block;
    double in = 0.0, out = 0.0;
    Rig(double B, int order, int T, double fs, int N) {
        block.Bandwidth = B;
        block.BesselOrder = order;
        block.NumTaps = T;
        block.SampleRate = fs;
        block.FFTSize = N;
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
    struct Case { double B; int order; double fs; int T, N; std::string messages; };
    const Case cases[] = {
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
        {1e11, 4, 1e12, 64, 128, ""},
    };
    for (const Case& c : cases) {
        Rig rig(c.B, c.order, c.T, c.fs, c.N);
        rig.block.input.m_iRate = 5;
        rig.block.input.m_iHistoryDepth = 0;
        rig.block.output.m_iHistoryDepth = 7;
        testing::internal::CaptureStderr();
        const bool ok = rig.block.Setup();
        const std::string err = testing::internal::GetCapturedStderr();
        EXPECT_EQ(err, c.messages);
        const bool expectOk = c.messages.empty() || c.messages == warn;
        EXPECT_EQ(ok, expectOk) << c.messages;
        if (expectOk) {
            EXPECT_EQ(rig.block.input.m_iRate, 1u);
            EXPECT_EQ(rig.block.input.m_iHistoryDepth, 1u);
            EXPECT_EQ(rig.block.output.m_iHistoryDepth, 7u);
        }
    }
}

TEST(BesselLPF, TapsAreTheCentredInverseTransformOfTheBesselSpectrum) {
    struct Case { double B; int order, T; double fs; int N; };
    const Case cases[] = {
        {1e11, 4, 5, 1e12, 128},  {1e11, 4, 4, 1e12, 128}, {1e11, 4, 64, 1e12, 128},
        {2e11, 3, 7, 1e12, 32},   {5e10, 1, 9, 1e12, 64},  {1e11, 2, 10, 1e12, 16},
        {3e11, 5, 33, 2e12, 256}, {1e11, 6, 16, 1e12, 64},
    };
    for (const Case& c : cases) {
        Rig rig(c.B, c.order, c.T, c.fs, c.N);
        ASSERT_TRUE(rig.block.Setup());
        ASSERT_TRUE(rig.block.Initialize());
        const std::vector<double> expected = NaiveTaps(c.B, c.order, c.T, c.fs, c.N);
        ASSERT_EQ(rig.block.m_vTaps.size(), expected.size());
        double peak = 0.0;
        for (double v : expected) peak = std::max(peak, std::fabs(v));
        for (int i = 0; i < c.T; ++i)
            EXPECT_NEAR(rig.block.m_vTaps[i], expected[i], 1e-12 * peak)
                << "order " << c.order << " T " << c.T << " N " << c.N << " tap " << i;
        EXPECT_EQ(rig.block.m_vDelayLine, std::vector<double>(c.T, 0.0));
        EXPECT_TRUE(rig.block.m_vConvInput.empty() && rig.block.m_vConvKernel.empty() &&
                    rig.block.m_vConvOutput.empty());
    }
    // The receiver's design passes DC with the gain of a low-pass.
    Rig rx(1e11, 4, 64, 1e12, 128);
    ASSERT_TRUE(rx.block.Setup() && rx.block.Initialize());
    double sum = 0.0;
    for (double v : rx.block.m_vTaps) sum += v;
    EXPECT_NEAR(sum, 1.0, 1e-3);
}

TEST(BesselLPF, RunIsTheFirSumInTapOrderAndSettlesToTheTapSum) {
    const uint32_t seed = 4242;
    std::mt19937 engine(seed);
    std::uniform_real_distribution<double> level(-1.0, 1.0);
    Rig rig(1e11, 4, 64, 1e12, 128);
    ASSERT_TRUE(rig.block.Setup() && rig.block.Initialize());
    const std::vector<double> taps = rig.block.m_vTaps;
    const int T = 64;

    std::vector<double> x(T, 1.0);  // a step first, then noise
    for (int n = 0; n < 500; ++n) x.push_back(level(engine));
    for (int t = 0; t < static_cast<int>(x.size()); ++t) {
        double expected = 0.0;
        for (int k = 0; k < T; ++k) expected += taps[k] * (t - k >= 0 ? x[t - k] : 0.0);
        const double got = rig.Step(x[t]);
        ASSERT_EQ(got, expected) << "sample " << t << " seed " << seed << ": " << Hex(got)
                                 << " vs " << Hex(expected);
        if (t == T - 1) {
            double tapSum = 0.0;
            for (double v : taps) tapSum += v;
            EXPECT_EQ(got, tapSum);
        }
    }

    // Re-Initialize with the same length keeps the line and restarts the index.
    const std::vector<double> line = rig.block.m_vDelayLine;
    ASSERT_TRUE(rig.block.Initialize());
    EXPECT_EQ(rig.block.m_vDelayLine, line);
    EXPECT_EQ(rig.block.m_iDelayIndex, 0);
    double expected = taps[0] * 0.5;
    for (int k = 1; k < T; ++k) expected += taps[k] * line[k];
    EXPECT_EQ(rig.Step(0.5), 0.0 + expected);

    // A longer line keeps what it had and appends zeros.
    const std::vector<double> before = rig.block.m_vDelayLine;
    rig.block.NumTaps = 70;
    ASSERT_TRUE(rig.block.Initialize());
    std::vector<double> grown = before;
    grown.resize(70, 0.0);
    EXPECT_EQ(rig.block.m_vDelayLine, grown);

    // The sum starts from +0.0: products that are all -0.0 still give +0.0.
    rig.block.NumTaps = 3;
    ASSERT_TRUE(rig.block.Initialize());
    rig.block.m_vTaps = {0.25, 0.5, 0.25};
    rig.block.m_vDelayLine.assign(3, -0.0);
    for (int t = 0; t < 4; ++t) {
        const double got = rig.Step(-0.0);
        EXPECT_FALSE(std::signbit(got)) << Hex(got);
    }

    Rig fresh(1e11, 4, 64, 1e12, 128);
    EXPECT_FALSE(fresh.block.Run());  // never designed: nothing to run
}

TEST(BesselLPF, FftRoutinesMatchADirectDft) {
    const int n = 8;
    std::mt19937 engine(7);
    std::uniform_real_distribution<double> level(-1.0, 1.0);
    std::vector<cd> x(n), kernel(n);
    for (auto& v : x) v = cd(level(engine), level(engine));
    for (auto& v : kernel) v = cd(level(engine), level(engine));
    auto dft = [&](const std::vector<cd>& in, int sign) {  // sign 1: e^{-j...}
        std::vector<cd> out(n);
        for (int k = 0; k < n; ++k) {
            cld sum = 0;
            for (int m = 0; m < n; ++m)
                sum += cld(in[m]) * std::polar(1.0L, -sign * 2 * M_PIl * k * m / n);
            out[k] = cd(sum);
        }
        return out;
    };
    auto near = [](const std::vector<cd>& a, const std::vector<cd>& b, const char* what) {
        for (size_t k = 0; k < a.size(); ++k) {
            EXPECT_NEAR(a[k].real(), b[k].real(), 1e-13) << what << " bin " << k;
            EXPECT_NEAR(a[k].imag(), b[k].imag(), 1e-13) << what << " bin " << k;
        }
    };
    BesselLPF block;
    for (int sign : {1, -1}) {
        std::vector<double> raw;
        for (const cd& v : x) raw.insert(raw.end(), {v.real(), v.imag()});
        block.fft_rif(raw.data(), n, sign);
        std::vector<cd> viaRif;
        for (int k = 0; k < n; ++k) viaRif.push_back(cd(raw[2 * k], raw[2 * k + 1]));
        near(viaRif, dft(x, sign), sign == 1 ? "fft_rif forward" : "fft_rif inverse");
    }
    std::vector<cd> forward = x, inverse = x, inverse2 = x;
    block.fft_cx(forward, n, 1);
    near(forward, dft(x, 1), "fft_cx forward, unscaled");
    block.fft_cx(inverse, n, -1);
    std::vector<cd> scaled = dft(x, -1);
    for (auto& v : scaled) v /= n;
    near(inverse, scaled, "fft_cx inverse, scaled by 1/n");
    block.ifft_cx(inverse2, n, -1);
    near(inverse2, scaled, "ifft_cx");
    block.ifft_cx(forward, n, -1);
    near(forward, x, "round trip");

    std::vector<cd> conv = x, direct(n);
    block.fft_conv(conv, kernel, n);
    for (int t = 0; t < n; ++t)
        for (int m = 0; m < n; ++m) direct[t] += x[m] * kernel[(t - m + n) % n];
    near(conv, direct, "fft_conv");
}

TEST(BesselLPF, BesselPolyIsTheTabledPolynomial) {
    BesselLPF block;
    const double constants[] = {1, 3, 15, 105, 945, 10395};
    const cd s(0.3, -1.7);
    for (int order = 1; order <= 6; ++order) {
        EXPECT_EQ(block.BesselPoly(order, 0.0), cd(constants[order - 1], 0.0));
        const cd got = block.BesselPoly(order, s), expected(Poly(order, cld(s)));
        EXPECT_NEAR(std::abs(got - expected), 0.0, 1e-12 * std::abs(expected)) << order;
    }
    EXPECT_EQ(block.BesselPoly(0, s), block.BesselPoly(6, s));
    EXPECT_EQ(block.BesselPoly(7, s), block.BesselPoly(6, s));
}
