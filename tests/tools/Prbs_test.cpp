// Prbs: the published start of PRBS7, agreement with the defining
// recurrence for every order, and the period 2^n - 1.
#include "tools/Prbs.h"

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

TEST(Prbs, RepeatsExactlyAfterItsPeriod) {
    // The register is the last n bits, so the sequence returns to its start
    // exactly when the run of n ones comes back: once per period, and it
    // holds 2^(n-1) ones in a period.
    for (int n : {7, 15, 23}) {
        Prbs p(n);
        EXPECT_EQ(p.Period(), (uint64_t{1} << n) - 1);
        uint64_t ones = 0, runsOfN = 0, run = 0;
        std::vector<uint8_t> head;
        for (uint64_t k = 0; k < p.Period(); ++k) {
            const int b = p.Next();
            if (k < 64) head.push_back(static_cast<uint8_t>(b));
            ones += b;
            run = b ? run + 1 : 0;
            runsOfN += run >= static_cast<uint64_t>(n);
        }
        EXPECT_EQ(ones, uint64_t{1} << (n - 1)) << "PRBS" << n;
        EXPECT_EQ(runsOfN, 1u) << "PRBS" << n;
        EXPECT_EQ(p.Bits(64), head) << "PRBS" << n << " after one period";
    }
}
