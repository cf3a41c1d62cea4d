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

std::string Hex(double v) { char t[40]; std::snprintf(t, sizeof t, "%a", v); return t; }

template <typename T>
void Set(Matrix<T>& m, const std::vector<T>& v) {
    m.Resize(v.empty() ? 0 : 1, v.size());
    for (size_t i = 0; i < v.size(); ++i) m.m_pData[i] = v[i];
}

struct Roots { double gain; std::vector<double> realPoles; std::vector<cplx> pairPoles;
               std::vector<double> realZeros; std::vector<cplx> pairZeros; };

void Configure(SDomainIIR& f, const Roots& r, double fs) {
    f.m_SampleRate = fs, f.m_Gain = r.gain;
    Set(f.m_RealPoles, r.realPoles), Set(f.m_ComplexConjugatePoles, r.pairPoles);
    Set(f.m_RealZeros, r.realZeros), Set(f.m_ComplexConjugateZeros, r.pairZeros);
}

bool Init(SDomainIIR& f, std::string* err = nullptr) {
    std::string ignored;
    testing::internal::CaptureStderr();
    const bool ok = f.Initialize();
    *(err ? err : &ignored) = testing::internal::GetCapturedStderr();
    return ok;
}

// Product over sections of the section's polynomial ratio at z^-1 = zi.
cplx Digital(const SDomainIIR& f, cplx zi) {
    cplx h = 1.0;
    for (const double* t = f.m_pTaps; t < f.m_pTaps + f.m_iNumTaps; t += 6)
        h *= (t[0] + t[1] * zi + t[2] * zi * zi) / (t[3] + t[4] * zi + t[5] * zi * zi);
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

// Bit for bit, or within 4 ulp where the expected taps come from a closed form.
void ExpectTaps(const SDomainIIR& f, const std::vector<double>& expected, bool exact = true) {
    ASSERT_EQ(f.m_iNumTaps, static_cast<int>(expected.size()));
    for (size_t i = 0; i < expected.size(); ++i) {
        if (exact) {
            EXPECT_EQ(Hex(f.m_pTaps[i]), Hex(expected[i])) << "tap " << i;
        } else {
            EXPECT_DOUBLE_EQ(f.m_pTaps[i], expected[i]) << "tap " << i;
        }
    }
}

const Roots kButterworth = {1.1616128054708951e29, {-650148.0708064173},
                            {{-200906.8027392695, 618327.5592971661}, {-525980.8381424781, 382147.44782641466}},
                            {}, {}};

}  // namespace

TEST(SDomainIIR, SmallDesignsFollowTheirClosedForms) {
    SDomainIIR f;
    // One real pole p, K = 2 fs: gain/(K-p) (1 + z^-1) / (1 - (K+p)/(K-p) z^-1).
    const double p = -1e5, gain = 3e5, K = 2e6, r = gain / (K - p);
    Configure(f, {gain, {p}, {}, {}, {}}, 1e6);
    ASSERT_TRUE(Init(f));
    ExpectTaps(f, {r, r, 0.0, 1.0, -(K + p) / (K - p), 0.0}, false);
    // Nothing but a gain.
    Configure(f, {-2.5, {}, {}, {}, {}}, 1e6);
    ASSERT_TRUE(Init(f));
    ExpectTaps(f, {-2.5, 0, 0, 1, 0, 0});
    // Three zeros, no poles: the denominators are padded (1 + z^-1)^2, then (1 + z^-1).
    Configure(f, {1e-12, {}, {}, {-4e5}, {{-2e5, 3e5}}}, 1e6);
    ASSERT_TRUE(Init(f));
    ASSERT_EQ(f.m_iNumTaps, 12);
    EXPECT_EQ(std::vector<double>(f.m_pTaps + 3, f.m_pTaps + 6), std::vector<double>({1, 2, 1}));
    EXPECT_EQ(std::vector<double>(f.m_pTaps + 9, f.m_pTaps + 12), std::vector<double>({1, 1, 0}));

    // The default Butterworth: three sections with numerators [1,2,1],
    // [1,2,1], [1,1,0], each times the same share of the gain; unity DC gain.
    SDomainIIR butterworth;
    ASSERT_TRUE(Init(butterworth));
    ASSERT_EQ(butterworth.m_iNumTaps, 18);
    const double shape[3][3] = {{1, 2, 1}, {1, 2, 1}, {1, 1, 0}}, b0 = butterworth.m_pTaps[0];
    for (int k = 0; k < 3; ++k)
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(Hex(butterworth.m_pTaps[6 * k + i]), Hex(shape[k][i] * b0)) << k << "," << i;
    EXPECT_NEAR(Digital(butterworth, 1.0).real(), 1.0, 1e-12);
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
    const double K = 2e6;
    for (size_t n = 0; n < sizeof cases / sizeof cases[0]; ++n) {
        SDomainIIR f;
        Configure(f, cases[n], 1e6);
        ASSERT_TRUE(Init(f));
        for (double theta : {0.0, 0.01, 0.3, 1.0, 2.5}) {
            const cplx zi = std::polar(1.0, -theta);
            const cplx hd = Digital(f, zi), ha = Analogue(cases[n], K * (1.0 - zi) / (1.0 + zi));
            EXPECT_LT(std::abs(hd - ha), 1e-9 * std::abs(ha)) << "case " << n << " theta " << theta;
        }
    }
}

TEST(SDomainIIR, HertzAreScaledInPlaceOnEveryInitializeWithAPositiveRate) {
    // Each Initialize multiplies the stored roots by 2 pi again: pass 2 designs
    // from roots scaled twice.
    const double w = 6.283185307179586;
    Roots expected = {3e4, {-1e4}, {{-2e4, 3e4}}, {-5e3}, {{-1e3, 2e3}}};
    SDomainIIR f;
    Configure(f, expected, 1e6);
    f.m_FreqUnit = SDomainIIR::eHz;
    for (int pass = 1; pass <= 2; ++pass) {
        for (auto* v : {&expected.realPoles, &expected.realZeros}) for (double& x : *v) x = x * w;
        for (auto* v : {&expected.pairPoles, &expected.pairZeros})
            for (cplx& x : *v) x = cplx(x.real() * w, x.imag() * w);
        ASSERT_TRUE(Init(f));
        SDomainIIR rad;
        Configure(rad, expected, 1e6);
        ASSERT_TRUE(Init(rad));
        SCOPED_TRACE("pass " + std::to_string(pass));
        ExpectTaps(f, std::vector<double>(rad.m_pTaps, rad.m_pTaps + rad.m_iNumTaps));
    }
    // The rate is checked first: nothing is scaled or designed.
    const double* taps = f.m_pTaps;
    for (double fs : {0.0, -1e6, std::nan("")}) {
        f.m_SampleRate = fs;
        std::string err;
        EXPECT_FALSE(Init(f, &err));
        EXPECT_EQ(err, "SampleRate must be positive.\n");
        EXPECT_EQ(f.m_pTaps, taps);
        EXPECT_EQ(f.m_RealPoles.m_pData[0], expected.realPoles[0]);
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

// The design for poles (p1, p23, p23) and zero z, written out step by step:
// section 0 holds the real pole pair over the zero times (1 + z^-1), section 1
// the first-order pole over (1 + z^-1).
std::vector<double> NaiveCtleTaps(const CtleRow& row, double fs) {
    const double p1 = row.p1, p2 = row.p23, z = row.z, T = 1.0 / fs, K = 2.0 / T;
    const double a00 = (K - p2) * (K - p1), a10 = K - p2;
    const double b0[3] = {(K - z) / a00, (-2.0 * z) / a00, (-(K + z)) / a00};
    const double b1[3] = {1.0 / a10, 1.0 / a10, 0.0 / a10};
    const double r = std::pow((row.gain * b0[0]) * b1[0], 1.0 / 2.0);
    return {1.0 * r, (b0[1] / b0[0]) * r, (b0[2] / b0[0]) * r, 1.0,
            (-(K - p2) * (p1 + K) - (K - p1) * (p2 + K)) / a00, ((p2 + K) * (p1 + K)) / a00,
            1.0 * r, (b1[1] / b1[0]) * r, (b1[2] / b1[0]) * r, 1.0, (-(K + p2)) / a10, 0.0 / a10};
}

}  // namespace

TEST(SDomainIIR, CtleRowsMatchTheReferenceGiveTheTableDcGainAndSettle) {
    for (int k = 0; k < 16; ++k) {
        const CtleRow& row = kCtle[k];
        SCOPED_TRACE("CTLE row " + std::to_string(k));
        SDomainIIR f;
        Configure(f, {row.gain, {row.p1, row.p23, row.p23}, {}, {row.z}, {}}, 1.7e9);
        // At 1.7e9, 2.0 / (1.0 / fs) differs from 2 * fs in the last bit.
        ASSERT_TRUE(Init(f));
        ExpectTaps(f, NaiveCtleTaps(row, 1.7e9));
        f.m_SampleRate = 1e12;
        ASSERT_TRUE(Init(f));
        ExpectTaps(f, NaiveCtleTaps(row, 1e12));

        const double dc = Digital(f, 1.0).real();
        EXPECT_EQ(std::lround(dc * 1e4), std::lround(row.dc * 1e4)) << dc;
        EXPECT_NEAR(dc / (row.gain * -row.z / (-row.p1 * -row.p23 * -row.p23)), 1.0, 1e-12);
        double in = 1.0, out = 0.0;
        f.input.SetBuffer(&in, 1, 1, 0);
        f.output.Get(0)->SetBuffer(&out, 1, 1, 0);
        for (int n = 0; n < 3000; ++n) {
            ASSERT_TRUE(f.Run());
            ASSERT_TRUE(n < 1000 || std::fabs(out - row.dc) <= 1e-4) << "sample " << n << ": " << out;
        }
        EXPECT_NEAR(out, dc, 1e-12);
    }
}
