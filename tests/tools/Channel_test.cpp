// Channel: step response of one section against the RC closed form, unit
// gain at DC, and the stated loss against the transfer function.
#include "tools/Channel.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>

using amihost::Channel;

TEST(Channel, SectionsAreRcLowPassesFromASettledStart) {
    // A unit step from a settled zero: 1 - exp(-t / tau), tau = 1 / (2 pi f).
    const double T = 1e-12, f = 2e9;
    std::vector<double> x(400, 1.0), dc(100, 0.25);
    x[0] = 0.0;
    Channel({f}, T).Process(x);
    for (size_t n = 0; n < x.size(); ++n)
        EXPECT_NEAR(x[n], n ? 1.0 - std::exp(-2.0 * M_PI * f * static_cast<double>(n) * T) : 0.0, 1e-12) << n;
    const Channel ch(Channel::DefaultCorners(), T);
    ch.Process(dc);
    EXPECT_EQ(dc, std::vector<double>(100, 0.25));
    for (double freq : {1e9, 5e9, 7.8125e9}) {
        std::complex<double> h = 1.0;
        for (double fc : Channel::DefaultCorners()) h /= std::complex<double>(1.0, freq / fc);
        EXPECT_NEAR(ch.LossDb(freq), -20.0 * std::log10(std::abs(h)), 1e-9) << freq;
    }
    EXPECT_GT(ch.LossDb(7.8125e9), 20.0);
    for (const auto& bad : {std::make_pair(1e9, 0.0), std::make_pair(0.0, 1e-12), std::make_pair(-1e9, 1e-12)})
        EXPECT_THROW(Channel({bad.first}, bad.second), std::invalid_argument);
}
