// StatEye against what can be worked out by hand: a clean pulse, one ISI
// cursor (the eye shrinks by twice the cursor at every BER), Gaussian noise
// (BER = Q(a0 / sigma)), and a short pulse whose 1 / 2^k patterns can be
// listed one by one.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "tools/eye/StatEye.h"

namespace {

amihost::StatEyeSettings Settings(int spb) {
    amihost::StatEyeSettings s;
    s.iSamplesPerBit = spb;
    s.dSampleInterval = 1e-12;
    s.dAmplitude = 0.5;
    return s;
}

}  // namespace

TEST(StatEye, MatchesHandWorkedEyes) {
    // One UI wide rectangle of 0.8 (its peak, the main cursor, in the
    // middle): every bit lands on +/-0.4 V.
    std::vector<double> clean(64, 0.0);
    std::fill(clean.begin() + 8, clean.begin() + 16, 0.8);
    clean[12] += 1e-9;
    const amihost::StatEyeResult c = amihost::StatEye::Compute(clean, Settings(8));
    EXPECT_NEAR(c.dMainCursor, 0.4, 1e-8);
    for (const auto& ct : c.vContours) EXPECT_NEAR(ct.dHeight, 0.8, 2e-3) << ct.dBer;
    EXPECT_EQ(c.vContours[2].dWidthUI, 1.0);

    // Add a post-cursor of 0.2 at 1 UI: the inner edges are 0.4 - 0.1.
    std::vector<double> isi = clean;
    std::fill(isi.begin() + 16, isi.begin() + 24, 0.2);
    const amihost::StatEyeResult i = amihost::StatEye::Compute(isi, Settings(8));
    for (const auto& ct : i.vContours) EXPECT_NEAR(ct.dHeight, 0.6, 3e-3) << ct.dBer;  // 0.5 mV bins

    // Noise only: BER = Q(0.4 / sigma) = erfc(0.4 / (sigma sqrt 2)) / 2.
    amihost::StatEyeSettings noisy = Settings(8);
    noisy.dNoiseRms = 0.07;
    const amihost::StatEyeResult n = amihost::StatEye::Compute(clean, noisy);
    const double q = 0.5 * std::erfc(0.4 / (0.07 * std::sqrt(2.0)));
    EXPECT_NEAR(std::log10(n.vBathtub[4]), std::log10(q), 0.05);
    // The 1e-6 contour lies 4.753 sigma inside the level.
    EXPECT_NEAR(n.vContours[0].dHeight, 2 * (0.4 - 4.753 * 0.07), 5e-3);

    // Random jitter of a quarter sample closes the outermost phase on
    // either side at 1e-12 (one sample away lies a closed eye); the centre
    // stays clean.
    amihost::StatEyeSettings rj = Settings(8);
    rj.dRjRms = 0.25e-12;
    const amihost::StatEyeResult j = amihost::StatEye::Compute(isi, rj);
    EXPECT_EQ(i.vContours[2].dWidthUI, 1.0);
    EXPECT_EQ(j.vContours[2].dWidthUI, 0.75);
    EXPECT_LT(j.vBathtub[4], 1e-15);
}

TEST(StatEye, AgreesWithEveryBitPatternListed) {
    // Cursors -0.05, 0.6, 0.25, -0.1, 0.04 (one sample per UI): 16 ISI
    // patterns, each 1/16; check the whole distribution through the
    // contours at levels between the patterns' steps.
    const std::vector<double> p = {0.0, -0.1, 1.2, 0.5, -0.2, 0.08, 0.0};
    amihost::StatEyeSettings s = Settings(1);
    s.iBins = 20000;
    s.vLevels = {0.5 / 16, 1.5 / 16, 3.5 / 16};
    const amihost::StatEyeResult r = amihost::StatEye::Compute(p, s);
    std::vector<double> v;
    for (int k = 0; k < 16; ++k) {
        double x = 0.6;
        const double isi[] = {-0.05, 0.25, -0.1, 0.04};
        for (int b = 0; b < 4; ++b) x += (k >> b & 1 ? 1 : -1) * isi[b];
        v.push_back(x);
    }
    std::sort(v.begin(), v.end());
    // The L-quantile of a 1 is the smallest pattern value v[ceil(16 L) - 1].
    for (size_t l = 0; l < 3; ++l)
        EXPECT_NEAR(r.vContours[l].vUpper[0], v[static_cast<size_t>(std::ceil(16 * s.vLevels[l])) - 1], 2e-3) << l;
    EXPECT_THROW(amihost::StatEye::Compute(std::vector<double>(8, 0.0), s), std::invalid_argument);
    EXPECT_THROW(amihost::StatEye::Compute(p, Settings(0)), std::invalid_argument);
}
