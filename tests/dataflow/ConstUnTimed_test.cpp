// ConstUnTimed: the initial delay of zeros, the constant afterwards, and the
// rejection of a negative delay.
#include <gtest/gtest.h>

#include <vector>

#include "dataflow/ConstUnTimed.h"

using namespace TesselModelBuilder;

TEST(ConstUnTimed, EmitsZerosForTheDelayThenTheValue) {
    ConstUnTimed<double> source;
    double slot = -1.0;
    source.output.SetBuffer(&slot, 1, 1, 0);
    source.Value = 10.0;
    for (int delay : {0, 2}) {
        source.m_iInitialDelay = delay;
        ASSERT_TRUE(source.Initialize());  // restarts the count
        std::vector<double> emitted;
        for (int i = 0; i < 4; ++i) emitted.push_back(source.Run() ? slot : -2.0);
        EXPECT_EQ(emitted, (delay ? std::vector<double>{0, 0, 10, 10} : std::vector<double>(4, 10.0)));
    }
    source.m_iInitialDelay = -1;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(source.Initialize());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "InitialDelay must be >= 0\n");
    EXPECT_EQ(source.iSampleCount, 0u);
}
