// The built KV2_RX_x64.so as a simulator drives it: the message AMI_Init
// hands out and what it leaves alone, streaming invariance, clock times and
// the settled response of every setting.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <string>
#include <vector>

#include "AmiLibrary.h"
#include "SameBits.h"

using namespace ami_test;
using kv2_test::SameBits;

namespace {

class KV2_RX_AMI : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(Ami().Loaded()) << dlerror(); }
};

// Settled gain of the Bessel FIR, from an independent design: sample the
// order-4 Bessel response on the 128-point grid, inverse DFT directly, keep
// the 64 taps centred on time zero, sum them.
double BesselFirDcGain() {
    const int N = 128, T = 64;
    const double fs = 1e12, bandwidth = 1e11, w0 = 2.114;
    std::vector<std::complex<double>> H(N);
    for (int k = 0; k < N; ++k) {
        if (k == N / 2) continue;
        const int f = k < N / 2 ? k : k - N;
        const std::complex<double> s(0.0, (double(f) / N) * fs / (bandwidth * 0.5) * w0);
        H[k] = 105.0 / (s * s * s * s + 10.0 * s * s * s + 45.0 * s * s + 105.0 * s + 105.0);
    }
    double sum = 0.0;
    for (int n = 0; n < N; ++n) {
        if (n > (T - 1) / 2 && n < N - T / 2) continue;
        std::complex<double> h = 0.0;
        for (int k = 0; k < N; ++k) h += H[k] * std::polar(1.0, 2.0 * M_PI * k * n / N);
        sum += h.real() / N;
    }
    return sum;
}

}  // namespace

TEST_F(KV2_RX_AMI, InitHandsOutOnlyLookupMessagesAndWritesNothingElse) {
    const std::string allFour = NotFound("SampleRate") + NotFound("EQ") + NotFound("SamplesPerBit") + NotFound("Corner");
    // Texts naming none of the four parameters (one not even a tree), then all four.
    for (const char* text : {"(KV2_RX (Other 1))", "not a tree", "(KV2_RX (EQ \"3\"))", "(X (EQ 3))", kFull}) {
        char sentinel[] = "untouched";
        std::vector<double> impulse(128);
        for (size_t i = 0; i < impulse.size(); ++i) impulse[i] = std::sin(0.1 * i) * 1e-3;
        const std::vector<double> before = impulse;
        std::string parameters = text;
        char *msg = sentinel, *out = sentinel;
        void* handle = nullptr;
        EXPECT_EQ(Ami().init(impulse.data(), 64, 1, 1e-12, 32e-12, parameters.data(), &out, &handle, &msg), 1);
        EXPECT_EQ(std::string(msg), text == kFull ? "untouched" : allFour) << text;
        EXPECT_EQ(out, sentinel);
        EXPECT_TRUE(SameBits(impulse, before));
        EXPECT_EQ(Ami().close(handle), 1);
    }
}

TEST_F(KV2_RX_AMI, BlockBoundariesAndASecondInstanceChangeNothing) {
    const std::vector<double> wave = Nrz(5000, 7, 0.05);
    const std::string eq12 = "(KV2_RX (EQ 12) (SamplesPerBit 32) (Corner \"Slow\"))";
    const std::vector<double> whole = Equalized(kFull, wave), solo12 = Equalized(eq12, wave);
    EXPECT_FALSE(SameBits(whole, wave));
    EXPECT_FALSE(SameBits(whole, solo12));
    for (size_t block : {1u, 7u, 1000u}) EXPECT_TRUE(SameBits(Equalized(kFull, wave, block), whole)) << block;

    // Two live instances called alternately.
    const Instance a = Open(kFull), b = Open(eq12.c_str());
    std::vector<double> wa = wave, wb = wave;
    double clock = 0.0;
    for (size_t at = 0; at < wave.size(); at += 500) {
        EXPECT_EQ(Ami().getWave(wa.data() + at, 500, &clock, nullptr, a.handle), 1);
        EXPECT_EQ(Ami().getWave(wb.data() + at, 500, &clock, nullptr, b.handle), 1);
    }
    EXPECT_TRUE(SameBits(wa, whole));
    EXPECT_TRUE(SameBits(wb, solo12));
    EXPECT_EQ(Ami().close(a.handle) + Ami().close(b.handle), 2);
}

TEST_F(KV2_RX_AMI, OnlyTheFirstClockSlotIsWritten) {
    // 8 samples per bit, then a bit time below half a sample (no samples per bit at all).
    for (const double bitTime : {8e-12, 0.2e-12}) {
        const Instance in = Open(kFull, nullptr, bitTime);
        std::vector<double> wave(1000, 0.1), clocks(1001, 3.0);
        EXPECT_EQ(Ami().getWave(wave.data(), 0, clocks.data(), nullptr, in.handle), 1);
        EXPECT_EQ(clocks[0], 3.0);
        EXPECT_EQ(wave, std::vector<double>(1000, 0.1));
        EXPECT_EQ(Ami().getWave(wave.data(), 1000, clocks.data(), nullptr, in.handle), 1);
        EXPECT_EQ(clocks[0], -1.0);
        EXPECT_EQ(std::vector<double>(clocks.begin() + 1, clocks.end()), std::vector<double>(1000, 3.0));
        EXPECT_EQ(Ami().close(in.handle), 1);
    }
}

TEST_F(KV2_RX_AMI, AStepSettlesAtEachSettingsDcGainTimesTheFirGain) {
    // gain, p1, p2 (= p3), z of each setting, rad/s.
    const double rows[16][4] = {
        {2.474715933435302e+21, -43324029256.126625, -43488494536.432076, -16113544486.629667},
        {6.621960664120328e+21, -60426534834.64518, -60361959054.89788, -16272426330.289875},
        {1.1408111880799817e+22, -70642519552.5008, -68929048163.26932, -14508305629.456228},
        {1.344216428458356e+22, -68374377594.08407, -67619681929.740906, -11518429460.13285},
        {1.5317656602024188e+22, -67172916678.823494, -66967051465.48886, -9762219368.038774},
        {1.751832057693429e+22, -66705043350.443344, -66703626805.35099, -8452586097.84822},
        {1.8622650878688378e+22, -65437303092.756905, -64803316832.30909, -7392399378.972589},
        {2.0519274177800037e+22, -65168480364.8459, -64559732357.31558, -6646618872.582765},
        {2.1889791399722305e+22, -63882733945.41437, -64164321772.78504, -6053946916.316615},
        {2.3846021562242813e+22, -63691167946.633286, -64332290733.322, -5592187686.702368},
        {2.347861293690296e+22, -61590281006.46078, -61595603588.91071, -5045602487.916522},
        {2.7691532723703855e+22, -66510368310.30014, -62566608527.605316, -4771050581.462967},
        {2.8617485907657648e+22, -57670682630.23383, -66222085478.77502, -4549577430.959268},
        {2.8530429609796027e+22, -61259906857.13028, -62050945025.40035, -4248687409.770487},
        {2.8966423040967494e+22, -61947822989.08587, -60015773519.02865, -3981962643.791301},
        {3.2089216175319944e+22, -58070059211.42627, -63959662413.519035, -3871711421.571445},
    };
    const double fir = BesselFirDcGain();
    for (int k = 0; k < 16; ++k) {
        const double* r = rows[k];
        const double dc = r[0] * (-r[3]) / ((-r[1]) * (-r[2]) * (-r[2]));
        const std::vector<double> wave =
            Equalized("(KV2_RX (EQ " + std::to_string(k) + ") (SamplesPerBit 32))", std::vector<double>(20000, 1.0));
        EXPECT_NEAR(wave.back(), dc * fir, 1e-9) << "setting " << k;
        EXPECT_EQ(wave[5], 0.0);  // the jitter block's delay: nothing arrives yet
    }
}
