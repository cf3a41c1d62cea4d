// CorrectlyRoundedPow against MPFR's correctly rounded pow: pow's special
// cases, a million random arguments over the whole positive range, and
// arguments built to land next to a rounding midpoint. Seeds are printed.
#include <gtest/gtest.h>
#include <mpfr.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>

#include "SameBits.h"
#include "blocks/CorrectlyRoundedPow.h"

using TesselModelBuilder::CorrectlyRoundedPowOneOver;
using kv2_test::Hex;

namespace {

// MPFR's nearest double to g^(1.0 / S), the exponent being that double.
double Reference(double g, size_t S) {
    mpfr_t x, y, z;
    mpfr_inits2(53, x, y, z, static_cast<mpfr_ptr>(nullptr));
    mpfr_set_d(x, g, MPFR_RNDN);
    mpfr_set_d(y, 1.0 / static_cast<double>(S), MPFR_RNDN);
    mpfr_pow(z, x, y, MPFR_RNDN);
    const double r = mpfr_get_d(z, MPFR_RNDN);
    mpfr_clears(x, y, z, static_cast<mpfr_ptr>(nullptr));
    return r;
}

// How far g^(1.0 / S) lies from the nearest rounding midpoint, in units in
// the last place of the result (0.5 is as far as it gets).
double DistanceToMidpoint(double g, size_t S) {
    mpfr_t x, y, z, ulp;
    mpfr_inits2(300, x, y, z, ulp, static_cast<mpfr_ptr>(nullptr));
    mpfr_set_d(x, g, MPFR_RNDN);
    mpfr_set_d(y, 1.0 / static_cast<double>(S), MPFR_RNDN);
    mpfr_pow(z, x, y, MPFR_RNDN);
    const double rounded = mpfr_get_d(z, MPFR_RNDN);
    mpfr_sub_d(z, z, rounded, MPFR_RNDN);  // within half an ulp of 0
    mpfr_set_d(ulp, std::nextafter(rounded, INFINITY) - rounded, MPFR_RNDN);
    mpfr_div(z, z, ulp, MPFR_RNDN);
    const double d = 0.5 - std::fabs(mpfr_get_d(z, MPFR_RNDN));
    mpfr_clears(x, y, z, ulp, static_cast<mpfr_ptr>(nullptr));
    return d;
}

uint64_t Bits(double v) {
    uint64_t b;
    std::memcpy(&b, &v, sizeof b);
    return b;
}

}  // namespace

TEST(CorrectlyRoundedPow, SpecialCasesFollowPow) {
    const double inf = std::numeric_limits<double>::infinity(), nan = std::nan("");
    const double tiny = std::numeric_limits<double>::denorm_min();
    struct Case { double g; size_t S; double expected; };
    const Case cases[] = {
        {-0.0, 1, -0.0}, {-3.0, 1, -3.0}, {-inf, 1, -inf},     // g^1 is g itself
        {-0.0, 2, 0.0},  {-inf, 2, inf},  {inf, 2, inf},        // where pow and sqrt differ
        {0.0, 3, 0.0},   {-0.0, 7, 0.0},  {-inf, 3, inf}, {1.0, 5, 1.0},
        {4.0, 2, 2.0},   {tiny, 2, std::sqrt(tiny)},
    };
    for (const Case& c : cases)
        EXPECT_EQ(Bits(CorrectlyRoundedPowOneOver(c.g, c.S)), Bits(c.expected)) << c.g << " S " << c.S;
    for (double g : {nan, -1.0, -tiny, -8.0})
        for (size_t S : {2, 3, 4}) EXPECT_TRUE(std::isnan(CorrectlyRoundedPowOneOver(g, S))) << g << " S " << S;
}

TEST(CorrectlyRoundedPow, AMillionRandomArgumentsMatchMpfr) {
    const uint32_t seed = std::random_device{}();
    std::mt19937_64 rng(seed);
    const size_t kRoots[] = {2, 3, 4, 5, 6, 7, 8, 9, 11, 16, 33, 100};
    int mismatches = 0;
    for (int i = 0; i < 1000000 && mismatches < 10; ++i) {
        // Uniform over the bit patterns of the positive finite doubles, so
        // subnormals and every binade get their share.
        const double g = [&] {
            for (;;) {
                const double v = [&] { const uint64_t b = rng() >> 1; double d; std::memcpy(&d, &b, sizeof d); return d; }();
                if (std::isfinite(v) && v > 0.0) return v;
            }
        }();
        const size_t S = kRoots[i % std::size(kRoots)];
        const double got = CorrectlyRoundedPowOneOver(g, S), want = Reference(g, S);
        if (Bits(got) != Bits(want)) {
            ++mismatches;
            ADD_FAILURE() << "seed " << seed << ": g " << Hex(g) << " S " << S << ": " << Hex(got) << " vs " << Hex(want);
        }
    }
}

// Hard cases: take a midpoint M between two doubles and g, the double
// nearest to M^(1/y); g^y then lies within a fraction of an ulp of M, and
// the closest of many such arguments are kept.
TEST(CorrectlyRoundedPow, ArgumentsNextToARoundingMidpointMatchMpfr) {
    const uint32_t seed = std::random_device{}();
    std::mt19937_64 rng(seed);
    std::uniform_real_distribution<double> mantissa(1.0, 2.0);
    std::uniform_int_distribution<int> exponent(-300, 300);
    int hard = 0;
    for (int i = 0; i < 100000; ++i) {
        const size_t S = 3 + i % 6;
        const double c = std::ldexp(mantissa(rng), exponent(rng) / static_cast<int>(S));
        mpfr_t m, inv;
        mpfr_inits2(300, m, inv, static_cast<mpfr_ptr>(nullptr));
        mpfr_set_d(m, c, MPFR_RNDN);
        mpfr_set_d(inv, std::nextafter(c, INFINITY) - c, MPFR_RNDN);
        mpfr_div_2ui(inv, inv, 1, MPFR_RNDN);
        mpfr_add(m, m, inv, MPFR_RNDN);                                    // M = c + ulp/2
        mpfr_set_d(inv, 1.0 / static_cast<double>(S), MPFR_RNDN);
        mpfr_ui_div(inv, 1, inv, MPFR_RNDN);                               // 1/y
        mpfr_pow(m, m, inv, MPFR_RNDN);
        const double g = mpfr_get_d(m, MPFR_RNDN);
        mpfr_clears(m, inv, static_cast<mpfr_ptr>(nullptr));
        if (!(g > 0.0 && std::isfinite(g)) || DistanceToMidpoint(g, S) > 2e-4) continue;
        ++hard;
        EXPECT_EQ(Hex(CorrectlyRoundedPowOneOver(g, S)), Hex(Reference(g, S)))
            << "seed " << seed << ": g " << Hex(g) << " S " << S;
    }
    EXPECT_GT(hard, 50) << "seed " << seed << ": too few arguments near a midpoint to test";
}
