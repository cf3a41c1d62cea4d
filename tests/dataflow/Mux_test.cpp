// Mux: selection by control through the rings, and the exact composed report
// for a bad block size or a control value out of range. (Fork's fan-out is
// exercised by every run of the receiver.)
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "dataflow/Mux.h"

using namespace TesselModelBuilder;

TEST(Mux, PassesTheSelectedInputBlockThroughTheRing) {
    Mux<CircularBuffer<double>> mux;
    std::vector<double> a = {1, 2, 3, 4}, b = {5, 6, 7, 8}, out(3, 0.0);
    mux.input.Initialize(2);
    mux.input.Get(0)->SetBuffer(a.data(), 4, 2, 0);
    mux.input.Get(1)->SetBuffer(b.data(), 4, 2, 3);
    mux.output.SetBuffer(out.data(), 3, 2, 2);
    mux.BlockSize = 2;
    mux.control = 1;
    EXPECT_TRUE(mux.Run());
    EXPECT_EQ(out, (std::vector<double>{5, 0, 8}));  // b[3], b[0] into out[2], out[0]
    mux.BlockSize = 0;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(mux.Setup());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "BlockSize must be >= 1\n");
}

TEST(Mux, OutOfRangeControlIsReportedExactlyAndWritesNothing) {
    const struct { int inputs, control; const char* counted; const char* range; } cases[] = {
        {16, 16, "There are 16 inputs", "[0,15]"}, {1, -1, "There is 1 input", "[0,0]"},
        {0, 0, "There is 0 input", "[0,18446744073709551615]"},
    };
    for (const auto& c : cases) {
        Mux<CircularBuffer<double>> mux;
        std::vector<double> ins(16, 1.0);
        double out = -7.0;
        mux.input.Initialize(c.inputs);
        for (int k = 0; k < c.inputs; ++k) mux.input.Get(k)->SetBuffer(&ins[k], 1, 1, 0);
        mux.output.SetBuffer(&out, 1, 1, 0);
        mux.control = c.control;
        testing::internal::CaptureStderr();
        EXPECT_FALSE(mux.Run());
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "Control input signal value is equal to " + std::to_string(c.control) +
                                                              ".  " + c.counted + " connected.  The valid control input range is " +
                                                              c.range + ".\n");
        EXPECT_EQ(out, -7.0);
    }
}
