// SDomainIIR: the bilinear design against the analogue response through the
// substitution, and the CTLE settings bit for bit against a straight-line
// reference design. (The rate check and its message: the hostile host's NaN
// rate, sixteen times.)
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <string>
#include <vector>

#include "CtleTable.h"
#include "SameBits.h"
#include "blocks/SDomainIIR.h"

using namespace TesselModelBuilder;
using kv2_test::Hex;
using cplx = std::complex<double>;

namespace {

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

// Initialize, which must succeed without a word.
bool Init(SDomainIIR& f) {
    testing::internal::CaptureStderr();
    const bool ok = f.Initialize();
    return testing::internal::GetCapturedStderr().empty() && ok;
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

std::vector<double> Taps(const SDomainIIR& f) { return std::vector<double>(f.m_pTaps, f.m_pTaps + f.m_iNumTaps); }

}  // namespace

TEST(SDomainIIR, DesignIsTheAnalogueResponseThroughTheSubstitutionWithTheGainSpreadEvenly) {
    const Roots cases[] = {
        {1.1616128054708951e29, {-650148.0708064173},  // the default Butterworth, as constructed
         {{-200906.8027392695, 618327.5592971661}, {-525980.8381424781, 382147.44782641466}}, {}, {}},
        {3e5, {-1e5}, {}, {}, {}},                                         // one real pole
        {-2.5, {}, {}, {}, {}},                                            // a gain alone
        {2e5, {-3e5, -1e5, -7e5}, {{-2e5, 4e5}}, {-5e4}, {{-1e5, 2e5}}},  // M = 5, S = 3
        {1e-12, {}, {}, {-4e5}, {{-2e5, 3e5}}},                            // zeros only, odd
        {1e6, {}, {{-1e5, 5e5}}, {-2e5}, {}},                              // odd zero, M even
    };
    for (size_t n = 0; n < std::size(cases); ++n) {
        SDomainIIR f;
        if (n > 0) Configure(f, cases[n], 1e6);
        ASSERT_TRUE(Init(f));
        for (double theta : {0.0, 0.01, 0.3, 1.0, 2.5}) {
            const cplx zi = std::polar(1.0, -theta);
            const cplx hd = Digital(f, zi), ha = Analogue(cases[n], 2e6 * (1.0 - zi) / (1.0 + zi));
            EXPECT_LT(std::abs(hd - ha), 1e-9 * std::abs(ha)) << "case " << n << " theta " << theta;
        }
        for (int k = 0; 6 * k < f.m_iNumTaps; ++k) {  // a0 = 1, every b0 the same share of the gain
            EXPECT_EQ(f.m_pTaps[6 * k + 3], 1.0) << "case " << n;
            EXPECT_EQ(Hex(f.m_pTaps[6 * k]), Hex(f.m_pTaps[0])) << "case " << n << " section " << k;
        }
    }
}

// The CTLE design for poles (p1, p23, p23) and zero z written out step by
// step: section 0 holds the real pole pair over the zero times (1 + z^-1),
// section 1 the first-order pole over (1 + z^-1).
std::vector<double> NaiveCtleTaps(const kv2_test::CtleRow& row, double fs) {
    const double p1 = row.p1, p2 = row.p23, z = row.z, T = 1.0 / fs, K = 2.0 / T;
    const double a00 = (K - p2) * (K - p1), a10 = K - p2;
    const double b0[3] = {(K - z) / a00, (-2.0 * z) / a00, (-(K + z)) / a00};
    const double b1[3] = {1.0 / a10, 1.0 / a10, 0.0 / a10};
    const double r = std::sqrt((row.gain * b0[0]) * b1[0]);  // g^(1/2), correctly rounded
    return {1.0 * r, (b0[1] / b0[0]) * r, (b0[2] / b0[0]) * r, 1.0,
            (-(K - p2) * (p1 + K) - (K - p1) * (p2 + K)) / a00, ((p2 + K) * (p1 + K)) / a00,
            1.0 * r, (b1[1] / b1[0]) * r, (b1[2] / b1[0]) * r, 1.0, (-(K + p2)) / a10, 0.0 / a10};
}

TEST(SDomainIIR, CtleSettingsMatchTheReferenceAndKeepTheirDcGain) {
    for (int k = 0; k < 16; ++k) {
        const kv2_test::CtleRow& row = kv2_test::kCtle[k];
        SCOPED_TRACE("CTLE row " + std::to_string(k));
        SDomainIIR f;
        Configure(f, {row.gain, {row.p1, row.p23, row.p23}, {}, {row.z}, {}}, 1.7e9);
        for (double fs : {1.7e9, 1e12}) {  // at 1.7e9, 2.0 / (1.0 / fs) differs from 2 fs in the last bit
            f.m_SampleRate = fs;
            ASSERT_TRUE(Init(f));
            EXPECT_TRUE(kv2_test::SameBits(Taps(f), NaiveCtleTaps(row, fs))) << fs;
        }
        const double dc = Digital(f, 1.0).real();
        EXPECT_EQ(std::lround(dc * 1e4), std::lround(row.dc * 1e4)) << dc;
        EXPECT_NEAR(dc / kv2_test::CtleDcGain(row), 1.0, 1e-12);
    }
}
