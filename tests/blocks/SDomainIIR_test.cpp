// SDomainIIR: the bilinear design checked against closed forms, against the
// analogue response through the substitution, against the CTLE table's DC
// gains, and bit for bit against a straight-line reference design.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstdio>
#include <string>
#include <vector>

#include "blocks/SDomainIIR.h"

using namespace TesselModelBuilder;
using cplx = std::complex<double>;

namespace {

std::string Hex(double v) {
    char text[64];
    std::snprintf(text, sizeof text, "%a", v);
    return text;
}

void SetReal(Matrix<double>& m, const std::vector<double>& v) {
    m.Resize(v.empty() ? 0 : 1, v.size());
    for (size_t i = 0; i < v.size(); ++i) m.m_pData[i] = v[i];
}

void SetComplex(Matrix<cplx>& m, const std::vector<cplx>& v) {
    m.Resize(v.empty() ? 0 : 1, v.size());
    for (size_t i = 0; i < v.size(); ++i) m.m_pData[i] = v[i];
}

struct Roots {
    double gain;
    std::vector<double> realPoles;
    std::vector<cplx> pairPoles;
    std::vector<double> realZeros;
    std::vector<cplx> pairZeros;
};

void Configure(SDomainIIR& f, const Roots& r, double fs) {
    f.m_SampleRate = fs;
    f.m_Gain = r.gain;
    SetReal(f.m_RealPoles, r.realPoles);
    SetComplex(f.m_ComplexConjugatePoles, r.pairPoles);
    SetReal(f.m_RealZeros, r.realZeros);
    SetComplex(f.m_ComplexConjugateZeros, r.pairZeros);
}

bool Init(SDomainIIR& f, std::string& err) {
    testing::internal::CaptureStderr();
    const bool ok = f.Initialize();
    err = testing::internal::GetCapturedStderr();
    return ok;
}

// Product over sections of the section's polynomial ratio at z^-1 = zi.
cplx Digital(const SDomainIIR& f, cplx zi) {
    cplx h = 1.0;
    for (int k = 0; k < f.m_iNumTaps / 6; ++k) {
        const double* t = f.m_pTaps + 6 * k;
        h *= (t[0] + t[1] * zi + t[2] * zi * zi) / (t[3] + t[4] * zi + t[5] * zi * zi);
    }
    return h;
}

cplx Analogue(const Roots& r, cplx s) {
    cplx h = r.gain;
    for (double z : r.realZeros) h *= s - z;
    for (cplx z : r.pairZeros) h *= (s - z) * (s - std::conj(z));
    for (double p : r.realPoles) h /= s - p;
    for (cplx p : r.pairPoles) h /= (s - p) * (s - std::conj(p));
    return h;
}

double DcGain(const SDomainIIR& f) {
    double dc = 1.0;
    for (int k = 0; k < f.m_iNumTaps / 6; ++k) {
        const double* t = f.m_pTaps + 6 * k;
        dc *= (t[0] + t[1] + t[2]) / (t[3] + t[4] + t[5]);
    }
    return dc;
}

const Roots kButterworth = {1.1616128054708951e29,
                            {-650148.0708064173},
                            {{-200906.8027392695, 618327.5592971661},
                             {-525980.8381424781, 382147.44782641466}},
                            {},
                            {}};

}  // namespace

TEST(SDomainIIR, OneSectionDesignsFollowTheirClosedForms) {
    const double fs = 1e6, p = -1e5, gain = 3e5, K = 2e6;
    SDomainIIR f;
    Configure(f, {gain, {p}, {}, {}, {}}, fs);
    std::string err;
    ASSERT_TRUE(Init(f, err));
    ASSERT_EQ(f.m_iNumTaps, 6);
    const double r = gain / (K - p);
    const double expected[6] = {r, r, 0.0, 1.0, -(K + p) / (K - p), 0.0};
    for (int i = 0; i < 6; ++i) EXPECT_DOUBLE_EQ(f.m_pTaps[i], expected[i]) << "tap " << i;

    // One complex pair, written out in the transform's operation order: bit for bit.
    // The sample rate and root are chosen so that any other grouping of A, q and
    // the sums changes the last bits.
    const double fsOdd = 1.7e9, sigma = -380000000.5, omega = 310000000.25;
    Configure(f, {7e10, {}, {{sigma, omega}}, {}, {}}, fsOdd);
    ASSERT_TRUE(Init(f, err));
    ASSERT_EQ(f.m_iNumTaps, 6);
    const double T = 1.0 / fsOdd;
    const double A = 4.0 / (T * T);
    const double m = sigma * sigma + omega * omega;
    const double q = (sigma * 4.0) / T;
    const double a0 = (A - q) + m;
    const double b0 = 1.0 / a0, g = 7e10 * b0;
    const double pair[6] = {1.0 * g, ((2.0 / a0) / b0) * g, ((1.0 / a0) / b0) * g, 1.0,
                            ((m - A) + (m - A)) / a0, (m + (q + A)) / a0};
    for (int i = 0; i < 6; ++i) EXPECT_EQ(Hex(f.m_pTaps[i]), Hex(pair[i])) << "tap " << i;
}

TEST(SDomainIIR, DefaultButterworthHasThreeSectionsAndUnityDcGain) {
    SDomainIIR f;
    EXPECT_EQ(f.output.m_iSize, 1u);
    EXPECT_EQ(f.m_FreqUnit, SDomainIIR::eRad);
    EXPECT_EQ(f.m_RealZeros.NumElements() + f.m_ComplexConjugateZeros.NumElements(), 0u);
    std::string err;
    ASSERT_TRUE(Init(f, err));
    ASSERT_EQ(f.m_iNumTaps, 18);
    const double* t = f.m_pTaps;

    // Sections 0 and 1: the complex pairs; section 2: the real pole, first order.
    const double fs = 1e6, K = 2 * fs;
    double a[3][3], a0Product = 1.0;
    for (int k = 0; k < 2; ++k) {
        const cplx c = kButterworth.pairPoles[k];
        const double m = std::norm(c), q = 2 * K * c.real();
        a[k][0] = K * K - q + m;
        a[k][1] = 2 * (m - K * K);
        a[k][2] = K * K + q + m;
    }
    const double p = kButterworth.realPoles[0];
    a[2][0] = K - p;
    a[2][1] = -(K + p);
    a[2][2] = 0.0;
    for (int k = 0; k < 3; ++k) {
        a0Product *= a[k][0];
        EXPECT_EQ(t[6 * k + 3], 1.0);
        EXPECT_NEAR(t[6 * k + 4], a[k][1] / a[k][0], 1e-14) << "section " << k;
        EXPECT_NEAR(t[6 * k + 5], a[k][2] / a[k][0], 1e-14) << "section " << k;
    }

    // Numerators [1,2,1], [1,2,1], [1,1,0] each scaled by one r = g^(1/3).
    const double r = std::cbrt(kButterworth.gain / a0Product);
    const double shape[3][3] = {{1, 2, 1}, {1, 2, 1}, {1, 1, 0}};
    for (int k = 0; k < 3; ++k) {
        EXPECT_EQ(Hex(t[6 * k]), Hex(t[0])) << "section " << k;
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(Hex(t[6 * k + i]), Hex(shape[k][i] * t[0])) << "section " << k;
    }
    EXPECT_NEAR(t[0] / r, 1.0, 1e-14);
    EXPECT_NEAR(DcGain(f), 1.0, 1e-12);
}

TEST(SDomainIIR, NoPolesAndNoZerosIsAPureGain) {
    SDomainIIR f;
    Configure(f, {-2.5, {}, {}, {}, {}}, 1e6);
    std::string err;
    ASSERT_TRUE(Init(f, err));
    ASSERT_EQ(f.m_iNumTaps, 6);
    const double expected[6] = {-2.5, 0, 0, 1, 0, 0};
    for (int i = 0; i < 6; ++i) EXPECT_EQ(Hex(f.m_pTaps[i]), Hex(expected[i]));
    double in = 0.75, out = 0.0;
    f.input.SetBuffer(&in, 1, 1, 0);
    f.output.Get(0)->SetBuffer(&out, 1, 1, 0);
    EXPECT_TRUE(f.Run());
    EXPECT_EQ(out, -1.875);
}

TEST(SDomainIIR, SurplusRootsArePaddedWithOnePlusZInverse) {
    const double fs = 1e6, K = 2e6;
    SDomainIIR f;
    std::string err;

    // Three zeros, no poles: denominator (1 + z^-1)^2 then (1 + z^-1).
    Configure(f, {1e-12, {}, {}, {-4e5}, {{-2e5, 3e5}}}, fs);
    ASSERT_TRUE(Init(f, err));
    ASSERT_EQ(f.m_iNumTaps, 12);
    const double pad[6] = {1, 2, 1, 1, 1, 0};
    for (int i = 0; i < 6; ++i) EXPECT_EQ(f.m_pTaps[3 + i % 3 + 6 * (i / 3)], pad[i]) << i;

    // One pole, four zeros: the pole times (1 + z^-1), then (1 + z^-1)^2.
    const double c = -2e5;
    Configure(f, {1e-15, {c}, {}, {-1e5, -3e5, -5e5, -6e5}, {}}, fs);
    ASSERT_TRUE(Init(f, err));
    ASSERT_EQ(f.m_iNumTaps, 12);
    const double a[6] = {1, -2 * c / (K - c), -(K + c) / (K - c), 1, 2, 1};
    for (int i = 0; i < 6; ++i)
        EXPECT_DOUBLE_EQ(f.m_pTaps[3 + i % 3 + 6 * (i / 3)], a[i]) << i;
}

TEST(SDomainIIR, DigitalResponseIsTheAnalogueOneThroughTheSubstitution) {
    const Roots cases[] = {
        kButterworth,
        {2e5, {-3e5, -1e5, -7e5}, {{-2e5, 4e5}}, {-5e4}, {{-1e5, 2e5}}},  // M = 5, S = 3
        {1e-12, {}, {}, {-4e5}, {{-2e5, 3e5}}},                            // zeros only, odd
        {1e-15, {-2e5}, {}, {-1e5, -3e5, -5e5, -6e5}, {}},                 // Z > P, even
        {1e6, {}, {{-1e5, 5e5}}, {-2e5}, {}},                              // odd zero, M even
        {1e23, {-1e5, -2e5, -3e5, -4e5}, {}, {}, {}},                      // poles only, even
    };
    const double fs = 1e6, K = 2 * fs;
    for (size_t n = 0; n < sizeof cases / sizeof cases[0]; ++n) {
        SCOPED_TRACE("case " + std::to_string(n));
        SDomainIIR f;
        Configure(f, cases[n], fs);
        std::string err;
        ASSERT_TRUE(Init(f, err));
        for (double theta : {0.0, 0.01, 0.3, 1.0, 2.5}) {
            const cplx zi = std::polar(1.0, -theta);
            const cplx s = K * (1.0 - zi) / (1.0 + zi);
            const cplx hd = Digital(f, zi), ha = Analogue(cases[n], s);
            EXPECT_LT(std::abs(hd - ha), 1e-9 * std::abs(ha)) << "theta " << theta;
        }
    }
}

TEST(SDomainIIR, HertzAreScaledInPlaceOnEveryInitialize) {
    const double w = 6.283185307179586;
    const Roots hz = {3e4, {-1e4}, {{-2e4, 3e4}}, {-5e3}, {{-1e3, 2e3}}};
    auto scaled = [&](const Roots& r) {
        Roots s = r;
        for (double& v : s.realPoles) v = v * w;
        for (double& v : s.realZeros) v = v * w;
        for (cplx& v : s.pairPoles) v = cplx(v.real() * w, v.imag() * w);
        for (cplx& v : s.pairZeros) v = cplx(v.real() * w, v.imag() * w);
        return s;
    };
    SDomainIIR f;
    Configure(f, hz, 1e6);
    f.m_FreqUnit = SDomainIIR::eHz;
    Roots expected = hz;
    std::string err;
    for (int pass = 1; pass <= 2; ++pass) {
        SCOPED_TRACE("pass " + std::to_string(pass));
        expected = scaled(expected);
        ASSERT_TRUE(Init(f, err));
        EXPECT_EQ(Hex(f.m_RealPoles.m_pData[0]), Hex(expected.realPoles[0]));
        EXPECT_EQ(Hex(f.m_RealZeros.m_pData[0]), Hex(expected.realZeros[0]));
        EXPECT_EQ(f.m_ComplexConjugatePoles.m_pData[0], expected.pairPoles[0]);
        EXPECT_EQ(f.m_ComplexConjugateZeros.m_pData[0], expected.pairZeros[0]);

        SDomainIIR rad;
        Configure(rad, expected, 1e6);
        ASSERT_TRUE(Init(rad, err));
        ASSERT_EQ(rad.m_iNumTaps, f.m_iNumTaps);
        for (int i = 0; i < f.m_iNumTaps; ++i)
            EXPECT_EQ(Hex(f.m_pTaps[i]), Hex(rad.m_pTaps[i])) << "tap " << i;
    }
}

TEST(SDomainIIR, SampleRateMustBePositive) {
    SDomainIIR f;
    std::string err;
    ASSERT_TRUE(Init(f, err));
    const double* taps = f.m_pTaps;
    const double b0 = taps[0];
    f.m_FreqUnit = SDomainIIR::eHz;
    for (double fs : {0.0, -1e6, std::nan("")}) {
        f.m_SampleRate = fs;
        EXPECT_FALSE(Init(f, err));
        EXPECT_EQ(err, "SampleRate must be positive.\n");
        EXPECT_EQ(f.m_pTaps, taps);
        EXPECT_EQ(f.m_iNumTaps, 18);
        EXPECT_EQ(Hex(f.m_pTaps[0]), Hex(b0));
        EXPECT_EQ(f.m_RealPoles.m_pData[0], kButterworth.realPoles[0]);  // not scaled
    }
}

namespace {

struct CtleRow { double gain, p1, p23, z, dc; };

const CtleRow kCtle[16] = {
    {2.474715933435302e+21, -43324029256.126625, -43488494536.432076, -16113544486.629667, 0.4867},
    {6.621960664120328e+21, -60426534834.64518, -60361959054.89788, -16272426330.289875, 0.4894},
    {1.1408111880799817e+22, -70642519552.5008, -68929048163.26932, -14508305629.456228, 0.4931},
    {1.344216428458356e+22, -68374377594.08407, -67619681929.740906, -11518429460.13285, 0.4952},
    {1.5317656602024188e+22, -67172916678.823494, -66967051465.48886, -9762219368.038774, 0.4964},
    {1.751832057693429e+22, -66705043350.443344, -66703626805.35099, -8452586097.84822, 0.4989},
    {1.8622650878688378e+22, -65437303092.756905, -64803316832.30909, -7392399378.972589, 0.5010},
    {2.0519274177800037e+22, -65168480364.8459, -64559732357.31558, -6646618872.582765, 0.5021},
    {2.1889791399722305e+22, -63882733945.41437, -64164321772.78504, -6053946916.316615, 0.5039},
    {2.3846021562242813e+22, -63691167946.633286, -64332290733.322, -5592187686.702368, 0.5059},
    {2.347861293690296e+22, -61590281006.46078, -61595603588.91071, -5045602487.916522, 0.5070},
    {2.7691532723703855e+22, -66510368310.30014, -62566608527.605316, -4771050581.462967, 0.5074},
    {2.8617485907657648e+22, -57670682630.23383, -66222085478.77502, -4549577430.959268, 0.5148},
    {2.8530429609796027e+22, -61259906857.13028, -62050945025.40035, -4248687409.770487, 0.5139},
    {2.8966423040967494e+22, -61947822989.08587, -60015773519.02865, -3981962643.791301, 0.5169},
    {3.2089216175319944e+22, -58070059211.42627, -63959662413.519035, -3871711421.571445, 0.5230},
};

void ConfigureCtle(SDomainIIR& f, const CtleRow& row) {
    Configure(f, {row.gain, {row.p1, row.p23, row.p23}, {}, {row.z}, {}}, 1e12);
}

// The design for three real poles and one real zero, written out step by step.
std::vector<double> NaiveCtleTaps(const CtleRow& row, double fs) {
    const double p1 = row.p1, p2 = row.p23, p3 = row.p23, z = row.z;
    const double T = 1.0 / fs;
    const double K = 2.0 / T;
    // Section 0: poles (p1, p2) over the zero times (1 + z^-1).
    double b00 = K - z, b01 = -2.0 * z, b02 = -(K + z);
    double a00 = (K - p2) * (K - p1);
    double a01 = -(K - p2) * (p1 + K) - (K - p1) * (p2 + K);
    double a02 = (p2 + K) * (p1 + K);
    // Section 1: the first-order p3 over (1 + z^-1).
    double b10 = 1.0, b11 = 1.0, b12 = 0.0;
    double a10 = K - p3, a11 = -(K + p3), a12 = 0.0;

    b00 = b00 / a00; b01 = b01 / a00; b02 = b02 / a00; a01 = a01 / a00; a02 = a02 / a00;
    b10 = b10 / a10; b11 = b11 / a10; b12 = b12 / a10; a11 = a11 / a10; a12 = a12 / a10;

    double g = row.gain;
    g = g * b00; b01 = b01 / b00; b02 = b02 / b00; b00 = 1.0;
    g = g * b10; b11 = b11 / b10; b12 = b12 / b10; b10 = 1.0;

    const double r = std::pow(g, 1.0 / 2.0);
    return {b00 * r, b01 * r, b02 * r, 1.0, a01, a02, b10 * r, b11 * r, b12 * r, 1.0, a11, a12};
}

}  // namespace

TEST(SDomainIIR, CtleRowsGiveTheTableDcGainAndAStepSettlesToIt) {
    for (int k = 0; k < 16; ++k) {
        SCOPED_TRACE("CTLE row " + std::to_string(k));
        const CtleRow& row = kCtle[k];
        SDomainIIR f;
        ConfigureCtle(f, row);
        std::string err;
        ASSERT_TRUE(Init(f, err));
        ASSERT_EQ(f.m_iNumTaps, 12);

        const double dc = DcGain(f);
        EXPECT_EQ(std::lround(dc * 1e4), std::lround(row.dc * 1e4)) << dc;
        const double analogueDc = row.gain * -row.z / (-row.p1 * -row.p23 * -row.p23);
        EXPECT_NEAR(dc / analogueDc, 1.0, 1e-12);

        double in = 1.0, out = 0.0;
        f.input.SetBuffer(&in, 1, 1, 0);
        f.output.Get(0)->SetBuffer(&out, 1, 1, 0);
        for (int n = 0; n < 3000; ++n) {
            ASSERT_TRUE(f.Run());
            if (n >= 1000) {
                ASSERT_NEAR(out, row.dc, 1e-4) << "sample " << n;
            }
        }
        EXPECT_NEAR(out, dc, 1e-12);
    }
}

TEST(SDomainIIR, CtleTapsMatchAStraightLineReferenceBitForBit) {
    // 1.7e9 as well, where 2.0 / (1.0 / fs) differs from 2 * fs in the last bit.
    for (double fs : {1e12, 1.7e9}) {
        for (int k = 0; k < 16; ++k) {
            SCOPED_TRACE("CTLE row " + std::to_string(k) + " at " + Hex(fs));
            SDomainIIR f;
            ConfigureCtle(f, kCtle[k]);
            f.m_SampleRate = fs;
            std::string err;
            ASSERT_TRUE(Init(f, err));
            const std::vector<double> expected = NaiveCtleTaps(kCtle[k], fs);
            ASSERT_EQ(f.m_iNumTaps, 12);
            for (int i = 0; i < 12; ++i)
                EXPECT_EQ(Hex(f.m_pTaps[i]), Hex(expected[i])) << "tap " << i;
        }
    }
}
