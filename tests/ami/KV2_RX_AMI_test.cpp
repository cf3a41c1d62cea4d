// The built KV2_RX_x64.so as a simulator drives it: the settled response of
// every setting, through the selected filter, the delay and the FIR. (Messages,
// clock times and bad arguments: the hostile host; impulse and output
// parameters left alone: the fuzz replay's session checks; block sizes:
// ModelRun_test; instances side by side: the C host and the concurrency test.)
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "AmiLibrary.h"
#include "BesselReference.h"
#include "CtleTable.h"

using namespace ami_test;

namespace {

class KV2_RX_AMI : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(Ami().Loaded()) << dlerror(); }
};

}  // namespace

TEST_F(KV2_RX_AMI, AStepSettlesAtEachSettingsDcGainTimesTheFirGain) {
    double fir = 0.0;  // the Bessel FIR's DC gain, from an independent design
    for (double tap : kv2_test::BesselTaps(1e11, 4, 64, 1e12, 128)) fir += tap;
    for (int k = 0; k < 16; ++k) {
        const std::vector<double> wave =
            Equalized("(KV2_RX (EQ " + std::to_string(k) + ") (SamplesPerBit 32))", std::vector<double>(20000, 1.0));
        EXPECT_NEAR(wave.back(), kv2_test::CtleDcGain(kv2_test::kCtle[k]) * fir, 1e-9) << "setting " << k;
        EXPECT_EQ(wave[5], 0.0);  // the jitter block's delay: nothing arrives yet
    }
}
