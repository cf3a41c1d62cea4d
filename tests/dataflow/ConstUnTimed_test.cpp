// ConstUnTimed: the initial delay of zeros, the constant afterwards, and the
// rejection of a negative delay.
#include <gtest/gtest.h>

#include <vector>

#include "dataflow/ConstUnTimed.h"

using namespace TesselModelBuilder;

namespace {

std::vector<double> Fire(ConstUnTimed<double>& source, int firings) {
    double slot = -1.0;
    source.output.SetBuffer(&slot, 1, 1, 0);
    std::vector<double> emitted;
    for (int i = 0; i < firings; ++i) {
        EXPECT_TRUE(source.Run());
        emitted.push_back(slot);
    }
    return emitted;
}

}  // namespace

TEST(ConstUnTimed, EmitsZerosForTheDelayThenTheValue) {
    ConstUnTimed<double> source;
    source.Value = 10.0;
    ASSERT_TRUE(source.Initialize());
    EXPECT_EQ(Fire(source, 3), (std::vector<double>{10, 10, 10}));

    source.m_iInitialDelay = 2;
    ASSERT_TRUE(source.Initialize());  // restarts the count
    EXPECT_EQ(source.iSampleCount, 0u);
    EXPECT_EQ(Fire(source, 5), (std::vector<double>{0, 0, 10, 10, 10}));
    EXPECT_EQ(source.iSampleCount, 5u);
}

TEST(ConstUnTimed, NegativeDelayIsRejected) {
    ConstUnTimed<double> source;
    source.m_iInitialDelay = -1;
    source.iSampleCount = 9;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(source.Initialize());
    EXPECT_FALSE(source.UpdateDynamicParameters());
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "InitialDelay must be >= 0\nInitialDelay must be >= 0\n");
    EXPECT_EQ(source.iSampleCount, 0u);
}
