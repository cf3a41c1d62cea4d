// Datasheet measurements on step responses whose figures are known in
// closed form: a scaled pure delay, a first-order low-pass and a peaking
// stage 1 + k s / (s + a) sampled finely.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "tools/eye/Datasheet.h"

namespace {
const double kPi = 3.14159265358979323846;
const double kT = 1e-12;
const size_t kLead = 100, kLength = 32768;
}  // namespace

TEST(Datasheet, StepResponsesWithKnownFigures) {
    // 0.5 x, 7 samples late: -6.02 dB, no peaking, 7 ps.
    std::vector<double> delay(kLength, 0.0);
    for (size_t n = kLead + 7; n < kLength; ++n) delay[n] = 0.5;
    amihost::DatasheetRow d = amihost::Datasheet::Measure(delay, kLead, kT);
    EXPECT_NEAR(d.dDcGainDb, 20 * std::log10(0.5), 1e-12);
    EXPECT_NEAR(d.dPeakingDb, 0.0, 1e-9);
    EXPECT_EQ(d.dPeakHz, 0.0);
    EXPECT_NEAR(d.dDelayS, 7e-12, 1e-18);

    // Low-pass, tau = 20 samples: 50 % after tau ln 2 (+ half a sample of
    // sampling the continuous step at the end of each interval).
    const double tau = 20.0;
    std::vector<double> lp(kLength, 0.0);
    for (size_t n = kLead; n < kLength; ++n) lp[n] = 1.0 - std::exp(-(n - kLead + 1.0) / tau);
    d = amihost::Datasheet::Measure(lp, kLead, kT);
    EXPECT_NEAR(d.dDcGainDb, 0.0, 1e-9);
    EXPECT_NEAR(d.dPeakingDb, 0.0, 1e-9);
    EXPECT_NEAR(d.dDelayS, (tau * std::log(2.0) - 0.5) * kT, 0.05 * kT);

    // H(s) = 1 + k s / (s + a): step 1 + k e^(-a t); |H| rises from 1 to
    // 1 + k, so over the band it peaks at Nyquist by 20 log10 (1 + k)
    // (less the little the sampled pole still rolls off).
    const double k = 3.0, a = 2 * kPi * 2e9 * kT;
    std::vector<double> hp(kLength, 0.0);
    for (size_t n = kLead; n < kLength; ++n) hp[n] = 1.0 + k * std::exp(-a * (n - kLead));
    d = amihost::Datasheet::Measure(hp, kLead, kT);
    EXPECT_NEAR(d.dDcGainDb, 0.0, 1e-9);
    EXPECT_NEAR(d.dPeakingDb, 20 * std::log10(1 + k), 0.1);
    EXPECT_NEAR(d.dPeakHz, 0.5 / kT, d.dBinHz);

    EXPECT_THROW(amihost::Datasheet::Measure(hp, 0, kT), std::invalid_argument);
    EXPECT_THROW(amihost::Datasheet::Measure(std::vector<double>(20, 1.0), 10, kT), std::invalid_argument);
    EXPECT_EQ(amihost::Datasheet::Table("EQ", {d}).substr(0, 8), "      EQ");
}
