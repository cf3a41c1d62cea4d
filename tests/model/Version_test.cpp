// version(): the six identification lines, stateless.
#include <gtest/gtest.h>

#include <string>

#include "model/Version.h"

TEST(Version, PrintsTheSixLinesEveryTime) {
    const std::string block =
        "Id: File Description   \n"
        "Id: File Version      2018 \n"
        "Id: Product Name      Tessel \n"
        "Id: Product Version   2018 \n"
        "Id: Company Name       \n"
        "Id: Copyright          \n";
    testing::internal::CaptureStdout();
    OrvaneLumetCodeGen::version();
    OrvaneLumetCodeGen::version();
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_EQ(printed, block + block);
}
