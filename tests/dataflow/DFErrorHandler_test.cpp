// DFErrorHandler: bare one-line reports on standard error, and the stream
// left bad by a null text.
#include <gtest/gtest.h>

#include <iostream>

#include "dataflow/DFErrorHandler.h"

using namespace TesselModelBuilder;

TEST(DFErrorHandler, EveryReportIsTheBareTextAndANewlineOnStandardError) {
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    DFErrorHandler::PostError(nullptr, "x");
    DFErrorHandler::PostWarning(nullptr, "NumTaps is >256, simulation speed may be slow");
    DFErrorHandler::PostInfo(nullptr, "info");
    DFErrorHandler::PostLog(nullptr, "log");
    DFErrorHandler::PostProgress(nullptr, "50%");
    DFErrorHandler::ClearProgress(nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "x\nNumTaps is >256, simulation speed may be slow\ninfo\nlog\n50%\n");
    EXPECT_FALSE(DFErrorHandler::StopRequested());
}

TEST(DFErrorHandler, NullTextLeavesStandardErrorBadAndSilent) {
    testing::internal::CaptureStderr();
    DFErrorHandler::PostInfo(nullptr, nullptr);
    const bool bad = std::cerr.bad();
    DFErrorHandler::PostError(nullptr, "not shown");
    std::cerr.clear();
    DFErrorHandler::PostError(nullptr, "shown");
    EXPECT_TRUE(bad);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "shown\n");
}
