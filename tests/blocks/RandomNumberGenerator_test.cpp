// Random generators: the engine against the MT19937 reference values, the
// seed-0 path through the shared seed source, uniform mapping, the polar
// method's pairs against an independent reference, and the variance meaning.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <random>
#include <utility>
#include <vector>

#include "blocks/RandomNumberGenerator.h"

using namespace TesselModelBuilder;

namespace {

constexpr double kScale = 4294967295.0;
constexpr double kFirst = 3499211612.0 / kScale;  // first MT19937 output for seed 5489

std::string Hex(double v) { char t[40]; std::snprintf(t, sizeof t, "%a", v); return t; }

// Marsaglia's polar method written out on its own engine: u1 before u2, the
// spare from u1.
struct PolarReference {
    std::mt19937 engine;
    double mean, variance;
    std::vector<double> pending;
    PolarReference(double m, double v, uint32_t seed) : engine(seed), mean(m), variance(v) {}
    double Uniform() { return static_cast<double>(engine()) / kScale * 2.0 - 1.0; }
    double Next() {
        if (!pending.empty()) return std::exchange(pending, {}).back();
        double a, b, s;
        do {
            a = Uniform();
            b = Uniform();
            s = b * b + a * a;
        } while (s >= 1.0);
        const double f = std::sqrt(std::log(s) * (-2.0 * variance) / s);
        pending.push_back(a * f + mean);
        return mean + b * f;
    }
};

}  // namespace

TEST(RandomNumberGenerator, EngineFollowsTheStandardMersenneTwister) {
    CUniform01 u(5489);
    EXPECT_EQ(u(), kFirst);
    for (int i = 2; i < 10000; ++i) u();
    EXPECT_EQ(u(), 4123659995.0 / kScale);  // the 10000th, the standard's check value
    u.Initialize(5489);
    EXPECT_EQ(u(), kFirst);
}

TEST(RandomNumberGenerator, SeedZeroTakesNonZeroSeedsFromTheSharedSource) {
    std::mt19937 shared = [] { std::lock_guard<std::mutex> lock(gRandomSeedGenLock); return gRandomSeedGen; }();
    auto nextSeed = [&shared] {
        uint32_t s = 0;
        while (s == 0) s = static_cast<uint32_t>(shared());
        return s;
    };
    const uint32_t seedA = nextSeed(), seedB = nextSeed();
    CUniform01 a(0), b(0);
    std::mt19937 refA(seedA), refB(seedB);
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(a(), refA() / kScale) << "draw " << i << " seed " << seedA;
        EXPECT_EQ(b(), refB() / kScale) << "draw " << i << " seed " << seedB;
    }
}

TEST(RandomNumberGenerator, UniformMapsOntoTheInterval) {
    const struct { double lower, upper; unsigned long seed; } cases[] = {
        {2.0, 5.0, 11}, {5.0, 2.0, 12}, {-1.0, 1.0, 13}, {-0.0, 0.0, 5489}};
    for (const auto& c : cases) {
        CUniform gen(c.lower, c.upper, c.seed);
        std::mt19937 ref(static_cast<uint32_t>(c.seed));
        for (int i = 0; i < 100; ++i) {
            const double expected = ref() / kScale * (c.upper - c.lower) + c.lower, got = gen();
            ASSERT_EQ(Hex(got), Hex(expected)) << c.lower << ".." << c.upper << " draw " << i;
        }
    }
    EXPECT_EQ(CUniform()(), kFirst);  // [0, 1] on the default seed
}

TEST(RandomNumberGenerator, NormalComesInPolarPairsWithTheVarianceUnderTheRoot) {
    CNormal gen(1.5, 4.0, 99);
    PolarReference ref(1.5, 4.0, 99);
    for (int i = 0; i < 1000; ++i) ASSERT_EQ(Hex(gen()), Hex(ref.Next())) << "draw " << i;
    // Initialize drops a held spare and restarts the stream.
    CNormal again;
    const double first = again();
    EXPECT_EQ(first, PolarReference(0.0, 1.0, 5489).Next());
    again.Initialize(0.0, 1.0, 5489);
    EXPECT_EQ(again(), first);

    // Variance 4 means a standard deviation of 2.
    CNormal wide(0.0, 4.0, 2024);
    const int count = 200000;
    double sum = 0.0, squares = 0.0;
    for (int i = 0; i < count; ++i) {
        const double v = wide();
        sum += v, squares += v * v;
    }
    EXPECT_NEAR(sum / count, 0.0, 0.02);
    EXPECT_NEAR(std::sqrt(squares / count - (sum / count) * (sum / count)), 2.0, 0.02);
}

TEST(RandomNumberGenerator, NegativeExponentialIsMinusLogTimesMean) {
    CNegativeExpntl gen(2.5, 31);
    std::mt19937 ref(31);
    for (int i = 0; i < 100; ++i) ASSERT_EQ(gen(), -std::log(ref() / kScale) * 2.5) << "draw " << i;
    EXPECT_EQ(CNegativeExpntl()(), -std::log(kFirst));
}
