// Prbs: the published start of PRBS7 and agreement with the defining
// recurrence for every order (whose polynomials are primitive, so the period
// 2^n - 1 follows).
#include "tools/signal/Prbs.h"

#include <gtest/gtest.h>

#include <stdexcept>

using amihost::Prbs;

TEST(Prbs, EveryOrderFollowsItsRecurrence) {
    // ITU-T O.150 PRBS7 from the all-ones state, most significant bit first.
    Prbs p7(7);
    for (int expected : {0xFE, 0x04, 0x18, 0x51, 0xE4}) {
        int byte = 0;
        for (int b = 0; b < 8; ++b) byte = (byte << 1) | p7.Next();
        EXPECT_EQ(byte, expected);
    }
    // s[k] = s[k-m] xor s[k-n] from n ones.
    const int taps[][2] = {{7, 6}, {15, 14}, {23, 18}, {31, 28}};  // n, m
    for (const auto& c : taps) {
        std::vector<uint8_t> s(5000, 1);
        for (size_t k = c[0]; k < s.size(); ++k) s[k] = s[k - c[1]] ^ s[k - c[0]];
        EXPECT_EQ(Prbs(c[0]).Bits(5000), s) << "PRBS" << c[0];
    }
    for (int n : {0, 5, 9, 32}) EXPECT_THROW(Prbs{n}, std::invalid_argument) << n;
}
