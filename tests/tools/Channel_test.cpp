// Channel: step response of one section against the RC closed form, and
// the loss the help text states against a sinusoid through the discrete
// cascade.
#include "tools/Channel.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>

using amihost::Channel;

namespace {
const double kPi = 3.14159265358979323846;
}

TEST(Channel, OneSectionStepFollowsTheRcCharge) {
    // A unit step from a settled zero: 1 - exp(-t / tau), tau = 1 / (2 pi f).
    const double T = 1e-12, f = 2e9;
    const Channel ch({f}, T);
    std::vector<double> x(400, 1.0);
    x[0] = 0.0;
    ch.Process(x);
    EXPECT_EQ(x[0], 0.0);
    for (size_t n = 1; n < x.size(); ++n)
        EXPECT_NEAR(x[n], 1.0 - std::exp(-2.0 * kPi * f * static_cast<double>(n) * T), 1e-12) << "n = " << n;
}

TEST(Channel, DefaultCascadeLossMatchesItsTransferFunction) {
    const double T = 1e-12;
    const Channel ch(Channel::DefaultCorners(), T);
    // Constant input passes unchanged: unit gain at DC and a settled start.
    std::vector<double> dc(100, 0.25);
    ch.Process(dc);
    for (double v : dc) EXPECT_EQ(v, 0.25);

    for (double f : {1e9, 5e9, 7.8125e9}) {
        // |H(j 2 pi f)| of the continuous model, written out independently.
        std::complex<double> h = 1.0;
        for (double fc : Channel::DefaultCorners()) h /= std::complex<double>(1.0, f / fc);
        const double expectedDb = -20.0 * std::log10(std::abs(h));
        EXPECT_NEAR(ch.LossDb(f), expectedDb, 1e-9) << f;

        // The discrete cascade in steady state: the amplitude of a sinusoid
        // after the transient, within 0.05 dB of the model (1 ps steps).
        std::vector<double> x(40000);
        for (size_t n = 0; n < x.size(); ++n) x[n] = std::sin(2.0 * kPi * f * static_cast<double>(n) * T);
        ch.Process(x);
        double peak = 0.0;
        for (size_t n = 20000; n < x.size(); ++n) peak = std::max(peak, std::fabs(x[n]));
        EXPECT_NEAR(-20.0 * std::log10(peak), expectedDb, 0.05) << f;
    }
    EXPECT_GT(ch.LossDb(7.8125e9), 20.0);
}

TEST(Channel, RejectsNonPositiveSettings) {
    EXPECT_THROW(Channel({1e9}, 0.0), std::invalid_argument);
    EXPECT_THROW(Channel({0.0}, 1e-12), std::invalid_argument);
    EXPECT_THROW(Channel({-1e9}, 1e-12), std::invalid_argument);
}
