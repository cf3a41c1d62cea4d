// Random generators: the engine against the MT19937 reference values, the
// seed-0 path through the shared seed source, uniform mapping, the polar
// method's pairs against an independent reference, and the variance meaning.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <random>
#include <vector>

#include "blocks/RandomNumberGenerator.h"

using namespace TesselModelBuilder;

namespace {

constexpr double kScale = 4294967295.0;

std::string Hex(double v) {
    char text[40];
    std::snprintf(text, sizeof text, "%a", v);
    return text;
}

// Marsaglia's polar method written out on its own engine: u1 before u2, the
// spare from u1.
struct PolarReference {
    std::mt19937 engine;
    double mean, variance;
    std::vector<double> pending;
    PolarReference(double m, double v, uint32_t seed) : engine(seed), mean(m), variance(v) {}
    double Uniform() { return static_cast<double>(engine()) / kScale * 2.0 - 1.0; }
    double Next() {
        if (!pending.empty()) {
            double v = pending.back();
            pending.pop_back();
            return v;
        }
        double a, b, s;
        do {
            a = Uniform();
            b = Uniform();
            s = b * b + a * a;
        } while (s >= 1.0);
        double f = std::sqrt(std::log(s) * (-2.0 * variance) / s);
        pending.push_back(a * f + mean);
        return mean + b * f;
    }
};

}  // namespace

TEST(RandomNumberGenerator, EngineFollowsTheStandardMersenneTwister) {
    CUniform01 u(5489);
    EXPECT_EQ(u(), 3499211612.0 / kScale);  // first MT19937 output for 5489
    for (int i = 2; i < 10000; ++i) u();
    EXPECT_EQ(u(), 4123659995.0 / kScale);  // the 10000th, the standard's check value

    // Same non-zero seed, same stream; Initialize restarts it.
    CUniform01 a(77), b(77);
    double first = a();
    EXPECT_EQ(first, b());
    a();
    a.Initialize(77);
    EXPECT_EQ(a(), first);
}

TEST(RandomNumberGenerator, SeedZeroTakesNonZeroSeedsFromTheSharedSource) {
    std::mt19937 shared;
    {
        std::lock_guard<std::mutex> lock(gRandomSeedGenLock);
        shared = gRandomSeedGen;
    }
    auto nextSeed = [&shared] {
        uint32_t s = 0;
        while (s == 0) s = static_cast<uint32_t>(shared());
        return s;
    };
    const uint32_t seedA = nextSeed(), seedB = nextSeed();
    CUniform01 a(0), b(0);
    std::mt19937 refA(seedA), refB(seedB), zero(0);
    int differing = 0;
    for (int i = 0; i < 8; ++i) {
        double va = a(), vb = b();
        EXPECT_EQ(va, refA() / kScale) << "draw " << i << " seed " << seedA;
        EXPECT_EQ(vb, refB() / kScale) << "draw " << i << " seed " << seedB;
        if (va != vb) ++differing;
        EXPECT_NE(va, zero() / kScale);  // never an engine seeded with 0
    }
    EXPECT_GT(differing, 0);
}

TEST(RandomNumberGenerator, UniformMapsOntoTheInterval) {
    struct Case { double lower, upper; unsigned long seed; };
    const Case cases[] = {{2.0, 5.0, 11}, {5.0, 2.0, 12}, {-1.0, 1.0, 13}, {-0.0, 0.0, 5489}};
    for (const Case& c : cases) {
        CUniform gen(c.lower, c.upper, c.seed);
        std::mt19937 ref(static_cast<uint32_t>(c.seed));
        for (int i = 0; i < 100; ++i) {
            double expected = ref() / kScale * (c.upper - c.lower) + c.lower;
            double got = gen();
            ASSERT_EQ(got, expected) << c.lower << ".." << c.upper << " draw " << i << ": "
                                     << Hex(got) << " vs " << Hex(expected);
        }
    }
    CUniform unit;  // [0, 1] on the default seed
    EXPECT_EQ(unit(), 3499211612.0 / kScale);
    CUniform moved(0.0, 1.0, 1);
    moved.Initialize(10.0, 20.0, 5489);
    EXPECT_EQ(moved(), 3499211612.0 / kScale * 10.0 + 10.0);
}

TEST(RandomNumberGenerator, NormalComesInPolarPairsWithTheVarianceUnderTheRoot) {
    CNormal gen(1.5, 4.0, 99);
    PolarReference ref(1.5, 4.0, 99);
    for (int i = 0; i < 1000; ++i) {
        double got = gen(), expected = ref.Next();
        ASSERT_EQ(got, expected) << "draw " << i << ": " << Hex(got) << " vs " << Hex(expected);
    }
    // Initialize drops a held spare and restarts the stream.
    CNormal again;
    PolarReference standard(0.0, 1.0, 5489);
    double first = again();
    EXPECT_EQ(first, standard.Next());
    again.Initialize(0.0, 1.0, 5489);
    EXPECT_EQ(again(), first);

    // Variance 4 means a standard deviation of 2.
    CNormal wide(0.0, 4.0, 2024);
    const int count = 200000;
    double sum = 0.0, squares = 0.0;
    for (int i = 0; i < count; ++i) {
        double v = wide();
        sum += v;
        squares += v * v;
    }
    double mean = sum / count;
    EXPECT_NEAR(mean, 0.0, 0.02);
    EXPECT_NEAR(std::sqrt(squares / count - mean * mean), 2.0, 0.02);
}

TEST(RandomNumberGenerator, NegativeExponentialIsMinusLogTimesMean) {
    CNegativeExpntl gen(2.5, 31);
    std::mt19937 ref(31);
    double sum = 0.0;
    const int count = 100000;
    for (int i = 0; i < count; ++i) {
        double v = gen();
        if (i < 100) {
            ASSERT_EQ(v, -std::log(ref() / kScale) * 2.5) << "draw " << i;
        }
        sum += v;
    }
    EXPECT_NEAR(sum / count, 2.5, 0.05);
    CNegativeExpntl unit;
    EXPECT_EQ(unit(), -std::log(3499211612.0 / kScale));
    unit.Initialize(3.0, 5489);
    EXPECT_EQ(unit(), -std::log(3499211612.0 / kScale) * 3.0);
}
