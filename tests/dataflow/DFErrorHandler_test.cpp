// DFErrorHandler and DFModel: bare one-line reports on standard error, and the
// default lifecycle.
#include <gtest/gtest.h>

#include <iostream>

#include "dataflow/DFErrorHandler.h"
#include "dataflow/DFModel.h"

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
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "x\nNumTaps is >256, simulation speed may be slow\ninfo\nlog\n50%\n");
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

TEST(DFModel, ABlockThatOverridesNothingSucceedsInEveryPhase) {
    struct Plain : DFModel {};
    Plain block;
    DFModel& model = block;
    EXPECT_TRUE(model.Setup());
    EXPECT_TRUE(model.Initialize());
    EXPECT_TRUE(model.Run());
    EXPECT_TRUE(model.Finalize());
    EXPECT_TRUE(model.UpdateDynamicParameters());
}
