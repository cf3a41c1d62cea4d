// Random generators: the engine against the MT19937 reference values, the
// uniform mapping, and the polar method's pairs against an independent
// reference. (The jitter tests draw through them as well.)
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <utility>
#include <vector>

#include "SameBits.h"
#include "blocks/RandomNumberGenerator.h"

using namespace TesselModelBuilder;
using kv2_test::Hex;

namespace {

constexpr double kScale = 4294967295.0;
constexpr double kFirst = 3499211612.0 / kScale;  // first MT19937 output for seed 5489

// Marsaglia's polar method on its own engine: u1 before u2, the spare from u1,
// the variance under the root.
struct PolarReference {
    std::mt19937 engine;
    double mean, variance;
    std::vector<double> pending;
    PolarReference(double m, double v, uint32_t seed) : engine(seed), mean(m), variance(v) {}
    double Uniform() { return static_cast<double>(engine()) / kScale * 2.0 - 1.0; }
    double Next() {
        if (!pending.empty()) return std::exchange(pending, {}).back();
        double a, b, s;
        do a = Uniform(), b = Uniform(), s = b * b + a * a;
        while (s >= 1.0);
        const double f = std::sqrt(std::log(s) * (-2.0 * variance) / s);
        pending.push_back(a * f + mean);
        return mean + b * f;
    }
};

}  // namespace

TEST(RandomNumberGenerator, EngineAndUniformFollowTheStandardMersenneTwister) {
    CUniform01 u(5489);
    EXPECT_EQ(u(), kFirst);
    for (int i = 2; i < 10000; ++i) u();
    EXPECT_EQ(u(), 4123659995.0 / kScale);  // the 10000th, the standard's check value
    CUniform gen(5.0, 2.0, 5489);  // a reversed interval maps just the same
    EXPECT_EQ(Hex(gen()), Hex(kFirst * (2.0 - 5.0) + 5.0));
}

TEST(RandomNumberGenerator, NormalComesInPolarPairsWithTheVarianceUnderTheRoot) {
    CNormal gen(1.5, 4.0, 99);
    PolarReference ref(1.5, 4.0, 99);
    for (int i = 0; i < 999; ++i) ASSERT_EQ(Hex(gen()), Hex(ref.Next())) << "draw " << i;
    gen.Initialize(0.0, 1.0, 5489);  // drops a held spare and restarts the stream
    EXPECT_EQ(gen(), PolarReference(0.0, 1.0, 5489).Next());
}
