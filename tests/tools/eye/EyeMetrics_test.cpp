// EyeMetrics: a synthetic NRZ waveform whose eye is known in closed form.
//
// Bit k (a_k = +/-1) occupies samples D + kS .. D + kS + S - 1 with
//     y = A a_k w(j) + c (a_{k-1} + a_{k+1}),   w(j) = 1 - |j - 6| / 16,
// j = 0 .. S-1: a triangular pulse peaking at phase 6 plus inter-symbol
// interference c from both neighbours. Every triple of bits occurs, so at
// phase j the inner eye edges are +/-(A w(j) - 2|c|): the height is
// 2 (A w(j) - 2|c|), largest at j = 6, and the eye is open at the phases
// where A w(j) > 2|c|. Read one UI off (the neighbour's samples) the eye is
// closed by at least 2 A w(j) > 0, so the search cannot lock there.
#include "tools/eye/EyeMetrics.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>

#include "tools/signal/Prbs.h"

using amihost::EyeMetrics;
using amihost::EyeResult;

namespace {

const int S = 16;
const int D = 37;  // latency in samples: two UI and five samples

// flat: a rectangular pulse (w = 1) instead of the triangle.
std::vector<double> Synthetic(const std::vector<uint8_t>& bits, double A, double c, bool flat = false) {
    std::vector<double> y(D + bits.size() * S, 0.0);
    auto a = [&](size_t i) { return i < bits.size() && bits[i] ? 1.0 : -1.0; };  // 0 - 1 wraps past the end
    for (size_t k = 0; k < bits.size(); ++k) {
        for (int j = 0; j < S; ++j) y[D + k * S + j] = A * a(k) * (flat ? 1.0 : 1.0 - std::abs(j - 6) / 16.0) + c * (a(k - 1) + a(k + 1));
    }
    return y;
}

}  // namespace

TEST(EyeMetrics, SyntheticEyesMatchTheClosedForm) {
    const std::vector<uint8_t> bits = amihost::Prbs(7).Bits(400);
    const double A = 0.5;
    // height: 2 (A - 2|c|) at j = 6; width: the phases with A w(j) > 2|c|, over S.
    const struct { double c, height, widthUI; bool open; } cases[] = {
        {0.15, 0.4, 13.0 / S, true},   // w > 0.6: |j - 6| <= 6, j = 0 .. 12
        {0.175, 0.3, 9.0 / S, true},   // w > 0.7: |j - 6| <= 4
        {-0.2, 0.2, 7.0 / S, true},    // w > 0.8: |j - 6| <= 3
        {0.3, -0.2, 0.0, false},       // ISI larger than the pulse: closed
    };
    for (const auto& t : cases) {
        const std::vector<double> y = Synthetic(bits, A, t.c);
        const EyeResult r = EyeMetrics::Measure(y, S, bits, 3, 8 * S);
        EXPECT_NEAR(r.dHeight, t.height, 1e-12) << "c = " << t.c;
        EXPECT_EQ(r.bOpen, t.open) << "c = " << t.c;
        EXPECT_EQ(r.dWidthUI, t.widthUI) << "c = " << t.c;
        EXPECT_EQ(r.iDelay, D + 6) << "c = " << t.c;
        EXPECT_TRUE(r.dPhaseUI == static_cast<double>((D + 6) % S) / S && std::fabs(r.dThreshold) < 1e-12);
        if (t.open) {
            // Without the bits the decisions are right whenever the eye is
            // open, so the blind measurement finds the same eye.
            const EyeResult b = EyeMetrics::MeasureBlind(y, S, 3);
            EXPECT_TRUE(std::fabs(b.dHeight - t.height) < 1e-12 && b.dWidthUI == t.widthUI && b.iDelay % S == (D + 6) % S)
                << "c = " << t.c;
        }
    }
    // A flat eye: every phase of the bit ties, and the first wins.
    const EyeResult r = EyeMetrics::Measure(Synthetic(bits, 0.5, 0.1, true), S, bits, 10, 8 * S);
    EXPECT_TRUE(r.iDelay == D && r.dWidthUI == 1.0) << r.iDelay;
    // y = +/-0.5 + 0.1 (a_{k-1} + a_{k+1}): the ISI averages out over the bits 10 .. 399.
    EXPECT_EQ(r.nBits, bits.size() - 10);
    EXPECT_NEAR(r.dLevel1, 0.5, 0.02);
    EXPECT_NEAR(r.dLevel0, -0.5, 0.02);
    // A waveform with no room for the delays is refused.
    EXPECT_THROW(EyeMetrics::Measure(std::vector<double>(800, 1.0), S, std::vector<uint8_t>(50, 1), 0, S),
                 std::invalid_argument);
    EXPECT_THROW(EyeMetrics::MeasureBlind(std::vector<double>(3 * S, 0.0), S, 5), std::invalid_argument);
}
