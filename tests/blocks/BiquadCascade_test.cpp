// BiquadCascade: tap checks and their exact messages, the coarse a0 test,
// output taps, and the direct form II loop against a direct form I reference.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <string>
#include <vector>

#include "blocks/BiquadCascade.h"

using namespace TesselModelBuilder;

namespace {

std::string Hex(double v) {
    char text[64];
    std::snprintf(text, sizeof text, "%a", v);
    return text;
}

// A cascade holding `taps` (b0 b1 b2 a0 a1 a2 per biquad), wired to one-sample rings.
struct Rig {
    BiquadCascade cascade;
    double in = 0.0;
    std::vector<double> outs;

    Rig(const std::vector<double>& taps, int outputs) : outs(outputs, 0.0) {
        cascade.m_pTaps = new double[taps.size()];
        for (size_t i = 0; i < taps.size(); ++i) cascade.m_pTaps[i] = taps[i];
        cascade.m_iNumTaps = static_cast<int>(taps.size());
        cascade.input.SetBuffer(&in, 1, 1, 0);
        cascade.output.Initialize(outputs);
        for (int k = 0; k < outputs; ++k) cascade.output.Get(k)->SetBuffer(&outs[k], 1, 1, 0);
    }
    bool Init(std::string& err) {
        testing::internal::CaptureStderr();
        const bool ok = cascade.Initialize();
        err = testing::internal::GetCapturedStderr();
        return ok;
    }
    void Step(double x) {
        in = x;
        EXPECT_TRUE(cascade.Run());
    }
};

}  // namespace

TEST(BiquadCascade, TapCountMustBeAPositiveMultipleOfSix) {
    for (int count : {0, 7, 5, -6}) {
        Rig rig(std::vector<double>(count > 0 ? count : 0, 1.0), 1);
        rig.cascade.m_iNumTaps = count;
        std::string err;
        EXPECT_FALSE(rig.Init(err));
        EXPECT_EQ(err, "The number of parameter taps must not be zero and must be a multiple of 6 "
                       "taps. There are currently " + std::to_string(count) + " taps.\n");
        EXPECT_EQ(rig.cascade.m_pState1, nullptr);
    }
}

TEST(BiquadCascade, CoarseD0TestAcceptsOnlyWholeMagnitudesThatFitAnInt) {
    const double inf = std::numeric_limits<double>::infinity();
    struct Case { double a0; bool accepted; };
    const Case cases[] = {
        {1.0, true}, {2.0, true}, {-1.0, true}, {1.5, true}, {2147483647.0, true},
        {-2147483647.5, true},
        {0.0, false}, {0.5, false}, {-0.9, false}, {3e9, false}, {-3e9, false},
        {2147483648.0, false}, {-2147483648.0, false}, {inf, false}, {-inf, false},
        {std::nan(""), false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(Hex(c.a0));
        const std::vector<double> second = {3.0, 5.0, -7.0, c.a0, -9.0, 11.0};
        std::vector<double> taps = {2.0, 4.0, 6.0, 2.0, 8.0, -10.0};
        taps.insert(taps.end(), second.begin(), second.end());
        Rig rig(taps, 1);
        std::string err;
        EXPECT_EQ(rig.Init(err), c.accepted);
        const double* t = rig.cascade.m_pTaps;
        // The first biquad is normalised whatever happens to the second.
        const double first[6] = {1.0, 2.0, 3.0, 1.0, 4.0, -5.0};
        for (int i = 0; i < 6; ++i) EXPECT_EQ(Hex(t[i]), Hex(first[i])) << "tap " << i;
        if (c.accepted) {
            EXPECT_EQ(err, "");
            const double expected[6] = {3.0 / c.a0, 5.0 / c.a0, -7.0 / c.a0, 1.0, -9.0 / c.a0,
                                        11.0 / c.a0};
            for (int i = 0; i < 6; ++i) EXPECT_EQ(Hex(t[6 + i]), Hex(expected[i])) << "tap " << i;
            EXPECT_NE(rig.cascade.m_pState1, nullptr);
        } else {
            EXPECT_EQ(err, "The D0 coefficient for biquad number 2 cannot be zero. \n");
            for (int i = 0; i < 6; ++i) EXPECT_EQ(Hex(t[6 + i]), Hex(second[i])) << "tap " << i;
            EXPECT_EQ(rig.cascade.m_pState1, nullptr);
        }
    }
}

TEST(BiquadCascade, OutputsMustNotOutnumberBiquads) {
    Rig rig({1, 0, 0, 1, 0, 0}, 2);
    std::string err;
    EXPECT_FALSE(rig.Init(err));
    EXPECT_EQ(err, "The number of outputs must be less than or equal to the number of biquads in "
                   "the cascade.  Currently, there are 2 outputs and 1 biquads.\n");

    Rig one({1, 0, 0, 1, 0, 0}, 1);
    EXPECT_TRUE(one.Init(err));
    EXPECT_EQ(err, "");
}

TEST(BiquadCascade, OutputsTapTheLastBiquadsFromTheEnd) {
    // y1 = 2x;  y2 = 3 y1[n-1];  y3 = y2 + 0.5 y3[n-1]: an impulse gives exact values.
    Rig rig({2, 0, 0, 1, 0, 0, 0, 3, 0, 1, 0, 0, 1, 0, 0, 1, -0.5, 0}, 2);
    std::string err;
    ASSERT_TRUE(rig.Init(err));
    const double x[5] = {1, 0, 0, 0, 0};
    const double last[5] = {0, 6, 3, 1.5, 0.75};
    const double second[5] = {0, 6, 0, 0, 0};
    for (int n = 0; n < 5; ++n) {
        rig.Step(x[n]);
        EXPECT_EQ(rig.outs[0], last[n]) << "n = " << n;
        EXPECT_EQ(rig.outs[1], second[n]) << "n = " << n;
    }
}

TEST(BiquadCascade, SumsAreGroupedAsInTheDifferenceEquations) {
    // 1e16 + 1 rounds to 1e16, so only the fixed grouping gives 0 where the exact answer is 1.
    // y = (b1 w1 + b0 w) + b2 w2 with w = x:  y[2] = (1e16 + 1) - 1e16.
    Rig sum({1, 1, -1, 1, 0, 0}, 1);
    // w = (x - a1 w1) - a2 w2 with y = w:  w[2] = (1 + 1e16) - 1e16.
    Rig feedback({1, 0, 0, 1, -1, 1}, 1);
    std::string err;
    ASSERT_TRUE(sum.Init(err));
    ASSERT_TRUE(feedback.Init(err));
    const double x[3] = {1e16, 1e16, 1};
    for (double v : x) sum.Step(v);
    EXPECT_EQ(sum.outs[0], 0.0);
    const double xf[3] = {1e16, 0, 1};
    for (double v : xf) feedback.Step(v);
    EXPECT_EQ(feedback.outs[0], 0.0);
}

TEST(BiquadCascade, FiltersLikeADirectFormOneReferenceAndRestartsFromRest) {
    const std::vector<double> taps = {0.5, -0.25, 0.125, 4.0, -3.2, 1.6,   // a0 = 4
                                      1.0, 2.0, 1.0, 1.0, 0.3, 0.4,
                                      1.0, -1.0, 0.0, 1.0, -0.9, 0.0};
    Rig rig(taps, 1);
    std::string err;
    ASSERT_TRUE(rig.Init(err));

    std::vector<double> x(200), y(200);
    for (size_t n = 0; n < x.size(); ++n) x[n] = std::sin(0.3 * n) + (n % 7 == 0 ? 1.0 : 0.0);

    // Direct form I per section: a0 y[n] = sum b_i x[n-i] - a1 y[n-1] - a2 y[n-2].
    std::vector<double> ref = x;
    for (size_t k = 0; k < 3; ++k) {
        const double* c = &taps[6 * k];
        std::vector<double> out(ref.size());
        for (size_t n = 0; n < ref.size(); ++n) {
            auto at = [](const std::vector<double>& v, size_t n, size_t d) {
                return n >= d ? v[n - d] : 0.0;
            };
            out[n] = (c[0] * ref[n] + c[1] * at(ref, n, 1) + c[2] * at(ref, n, 2) -
                      c[4] * at(out, n, 1) - c[5] * at(out, n, 2)) / c[3];
        }
        ref = out;
    }
    for (size_t n = 0; n < x.size(); ++n) {
        rig.Step(x[n]);
        y[n] = rig.outs[0];
        EXPECT_NEAR(y[n], ref[n], 1e-12 * (1.0 + std::fabs(ref[n]))) << "n = " << n;
    }

    ASSERT_TRUE(rig.Init(err));  // taps already normalised; state cleared
    for (size_t n = 0; n < x.size(); ++n) {
        rig.Step(x[n]);
        ASSERT_EQ(Hex(rig.outs[0]), Hex(y[n])) << "n = " << n;
    }

    Rig identity({1, 0, 0, 1, 0, 0, 1, 0, 0, 1, 0, 0}, 1);
    ASSERT_TRUE(identity.Init(err));
    for (double v : x) {
        identity.Step(v);
        EXPECT_EQ(Hex(identity.outs[0]), Hex(v));
    }
}
