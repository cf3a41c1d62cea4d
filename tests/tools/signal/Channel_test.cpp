// Channel: step response of one section against the RC closed form, unit
// gain at DC, and the refused corners.
#include "tools/signal/Channel.h"

#include <gtest/gtest.h>

#include <cmath>

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
    for (const auto& bad : {std::make_pair(1e9, 0.0), std::make_pair(0.0, 1e-12), std::make_pair(-1e9, 1e-12)})
        EXPECT_THROW(Channel({bad.first}, bad.second), std::invalid_argument);
}
