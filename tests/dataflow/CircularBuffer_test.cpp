// CircularBuffer: index arithmetic with its single wrap, zeroing and reset.
// (Ring-to-ring copies across the wrap of both rings: Mux_test; the bus is
// wired by every receiver test.)
#include <gtest/gtest.h>

#include <vector>

#include "dataflow/CircularBuffer.h"

using namespace TesselModelBuilder;

TEST(CircularBuffer, PositionsWrapWithOneSubtractionAndZeroClearsThem) {
    double ring[4] = {1, 2, 3, 4};
    CircularBuffer<double> b;
    b.SetBuffer(ring, 4, 1, 3);
    EXPECT_TRUE(b.IndexAt(0) == 3u && b.IndexAt(1) == 0u && b.IndexAt(3) == 2u && b.GetReadPtr(2) == &ring[1]);
    EXPECT_TRUE(b.Zero(1, 2, nullptr) && b.Zero(0, 0, nullptr));
    EXPECT_EQ(std::vector<double>(ring, ring + 4), (std::vector<double>{0, 0, 3, 4}));
    b.SetRate(2);
    for (uint64_t expected : {1u, 3u, 1u}) {  // 3 + 2 wraps to 1
        b.Advance();
        EXPECT_EQ(b.GetCurrentIndex(), expected);
    }
    b.SetRate(3);
    b.Advance();  // reaching the size exactly wraps to 0
    EXPECT_EQ(b.GetCurrentIndex(), 0u);
    CircularBuffer<double> none;  // no memory to free, yet the ring is reset
    none.SetBuffer(nullptr, 4, 1, 3);
    none.DeallocateMemory(nullptr);
    EXPECT_TRUE(none.GetCurrentIndex() == 0u && none.GetSize() == 0u);
}
