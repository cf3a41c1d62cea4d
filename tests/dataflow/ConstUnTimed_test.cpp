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
    const struct { int delay; std::vector<double> emitted; } cases[] = {{0, {10, 10, 10}}, {2, {0, 0, 10, 10, 10}}};
    for (const auto& c : cases) {
        source.m_iInitialDelay = c.delay;
        ASSERT_TRUE(source.Initialize());  // restarts the count
        std::vector<double> emitted;
        for (size_t i = 0; i < c.emitted.size(); ++i) {
            EXPECT_TRUE(source.Run());
            emitted.push_back(slot);
        }
        EXPECT_EQ(emitted, c.emitted) << c.delay;
    }

    source.m_iInitialDelay = -1;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(source.Initialize());
    EXPECT_FALSE(source.UpdateDynamicParameters());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "InitialDelay must be >= 0\nInitialDelay must be >= 0\n");
    EXPECT_EQ(source.iSampleCount, 0u);
}
