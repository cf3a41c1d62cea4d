// BiquadCascade: tap checks and their exact messages, the coarse a0 test,
// the grouping of the direct form II sums and the output taps. (The filters'
// responses are checked through the CTLE design and the receiver.)
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "SameBits.h"
#include "blocks/BiquadCascade.h"

using namespace TesselModelBuilder;
using kv2_test::Hex;

namespace {

// A cascade holding `taps` (b0 b1 b2 a0 a1 a2 per biquad), wired to one-sample rings.
struct Rig {
    BiquadCascade cascade;
    double in = 0.0;
    std::vector<double> outs;

    Rig(const std::vector<double>& taps, int outputs) : outs(outputs, 0.0) {
        cascade.m_pTaps = new double[taps.size()];
        std::copy(taps.begin(), taps.end(), cascade.m_pTaps);
        cascade.m_iNumTaps = static_cast<int>(taps.size());
        cascade.input.SetBuffer(&in, 1, 1, 0);
        cascade.output.Initialize(outputs);
        for (int k = 0; k < outputs; ++k) cascade.output.Get(k)->SetBuffer(&outs[k], 1, 1, 0);
    }
    bool Init(std::string* err = nullptr) {
        testing::internal::CaptureStderr();
        const bool ok = cascade.Initialize();
        const std::string text = testing::internal::GetCapturedStderr();
        if (err) *err = text;
        return ok;
    }
    double Step(double x) {
        in = x;
        EXPECT_TRUE(cascade.Run());
        return outs[0];
    }
};

}  // namespace

TEST(BiquadCascade, TapAndOutputCountsAreCheckedWithExactMessages) {
    for (int count : {0, 7, -6}) {
        Rig rig(std::vector<double>(count > 0 ? count : 0, 1.0), 1);
        rig.cascade.m_iNumTaps = count;
        std::string err;
        EXPECT_FALSE(rig.Init(&err));
        EXPECT_EQ(err, "The number of parameter taps must not be zero and must be a multiple of 6 "
                       "taps. There are currently " + std::to_string(count) + " taps.\n");
        EXPECT_EQ(rig.cascade.m_pState1, nullptr);
    }
    Rig rig({1, 0, 0, 1, 0, 0}, 2);
    std::string err;
    EXPECT_FALSE(rig.Init(&err));
    EXPECT_EQ(err, "The number of outputs must be less than or equal to the number of biquads in "
                   "the cascade.  Currently, there are 2 outputs and 1 biquads.\n");
}

TEST(BiquadCascade, CoarseD0TestAcceptsOnlyWholeMagnitudesThatFitAnInt) {
    const double inf = std::numeric_limits<double>::infinity();
    const struct { double a0; bool accepted; } cases[] = {
        {-1.0, true}, {1.5, true}, {2147483647.0, true}, {-2147483647.5, true},
        {0.0, false}, {0.5, false}, {-0.9, false}, {3e9, false}, {-2147483648.0, false},
        {2147483648.0, false}, {-inf, false}, {std::nan(""), false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(Hex(c.a0));
        const double second[6] = {3.0, 5.0, -7.0, c.a0, -9.0, 11.0};
        Rig rig({2.0, 4.0, 6.0, 2.0, 8.0, -10.0, 3.0, 5.0, -7.0, c.a0, -9.0, 11.0}, 1);
        std::string err;
        EXPECT_TRUE(rig.Init(&err) == c.accepted && (rig.cascade.m_pState1 != nullptr) == c.accepted);
        EXPECT_EQ(err, c.accepted ? "" : "The D0 coefficient for biquad number 2 cannot be zero. \n");
        for (int i = 0; i < 6; ++i) {
            const double expected = !c.accepted ? second[i] : i == 3 ? 1.0 : second[i] / c.a0;
            EXPECT_EQ(Hex(rig.cascade.m_pTaps[6 + i]), Hex(expected)) << "tap " << i;
        }
    }
}

TEST(BiquadCascade, SumsAreGroupedAsInTheDifferenceEquationsAndOutputsCountFromTheLast) {
    // Two terms of +/-1e16 and a small one: only the stated grouping keeps
    // the small one, every other grouping rounds it away.
    // y = (b1 w1 + b0 w) + b2 w2, w = x:        y[2] = (1e16 - 1e16) + 1.
    // w = (x - a1 w1) - a2 w2 (a1 = 5e15, a2 = -0.5), y = w:  w[2] = (1e16 - 5e15 * 2) + 0.5 * 1.
    Rig sum({1, 1, 1, 1, 0, 0}, 1), feedback({1, 0, 0, 1, 5e15, -0.5}, 1);
    ASSERT_TRUE(sum.Init() && feedback.Init());
    for (double v : {1.0, 1e16}) sum.Step(v);
    for (double v : {1.0, 5e15 + 2}) feedback.Step(v);
    EXPECT_EQ(sum.Step(-1e16), 1.0);
    EXPECT_EQ(feedback.Step(1e16), 0.5);
    // Output k is the output of biquad N-1-k; a0 = 4 scales its section, and
    // Initialize again starts from rest.
    Rig taps({2, 1, 0, 1, 0, 0, 12, 0, 0, 4, 0, 0}, 2);
    ASSERT_TRUE(taps.Init());
    EXPECT_EQ(taps.Step(1.0), 6.0);
    EXPECT_EQ(taps.outs[1], 2.0);
    ASSERT_TRUE(taps.Init());
    EXPECT_EQ(taps.Step(0.0), 0.0);
}
