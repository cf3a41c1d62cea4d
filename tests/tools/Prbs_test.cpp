// Prbs: the published start of PRBS7, agreement with the defining
// recurrence for every order, and the period 2^n - 1.
#include "tools/Prbs.h"

#include <gtest/gtest.h>

#include <stdexcept>

using amihost::Prbs;

namespace {

// s[k] = s[k-m] xor s[k-n] from n ones, written out longhand.
std::vector<uint8_t> Recurrence(int n, int m, size_t count) {
    std::vector<uint8_t> s(count, 1);
    for (size_t k = n; k < count; ++k) s[k] = s[k - m] ^ s[k - n];
    return s;
}

}  // namespace

TEST(Prbs, Prbs7StartsWithThePublishedBytes) {
    // ITU-T O.150 PRBS7 from the all-ones state, most significant bit first.
    const uint8_t expected[] = {0xFE, 0x04, 0x18, 0x51, 0xE4};
    Prbs p(7);
    for (size_t i = 0; i < sizeof expected; ++i) {
        int byte = 0;
        for (int b = 0; b < 8; ++b) byte = (byte << 1) | p.Next();
        EXPECT_EQ(byte, expected[i]) << "byte " << i;
    }
}

TEST(Prbs, EveryOrderFollowsItsRecurrence) {
    const struct { int n, m; } cases[] = {{7, 6}, {15, 14}, {23, 18}, {31, 28}};
    for (const auto& c : cases) {
        Prbs p(c.n);
        EXPECT_EQ(p.Period(), (uint64_t{1} << c.n) - 1);
        EXPECT_EQ(p.Bits(5000), Recurrence(c.n, c.m, 5000)) << "PRBS" << c.n;
    }
}

TEST(Prbs, RepeatsExactlyAfterItsPeriod) {
    // The register is the last n bits, so the sequence returns to its start
    // exactly when the run of n ones comes back: once per period, and it
    // holds 2^(n-1) ones in a period.
    for (int n : {7, 15, 23}) {
        Prbs p(n);
        const uint64_t period = p.Period();
        uint64_t ones = 0, runsOfN = 0, run = 0;
        std::vector<uint8_t> head;
        for (uint64_t k = 0; k < period; ++k) {
            const int b = p.Next();
            if (k < 64) head.push_back(static_cast<uint8_t>(b));
            ones += b;
            run = b ? run + 1 : 0;
            if (run >= static_cast<uint64_t>(n)) ++runsOfN;
        }
        EXPECT_EQ(ones, uint64_t{1} << (n - 1)) << "PRBS" << n;
        EXPECT_EQ(runsOfN, 1u) << "PRBS" << n;
        EXPECT_EQ(p.Bits(64), head) << "PRBS" << n << " after one period";
    }
}

TEST(Prbs, RejectsOtherOrders) {
    for (int n : {0, 5, 9, 32}) EXPECT_THROW(Prbs{n}, std::invalid_argument) << n;
}
