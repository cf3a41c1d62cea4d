// CircularBuffer: index arithmetic with its single wrap, chunked ring-to-ring
// copies, zeroing and reset. (The bus is wired by every receiver test.)
#include <gtest/gtest.h>

#include <numeric>
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

TEST(CircularBuffer, RingToRingCopyMatchesAnElementwiseReference) {
    const struct { uint64_t sSize, sCur, sOff, dSize, dCur, dOff, count; } cases[] = {
        {4, 2, 0, 8, 6, 0, 5},  // chunks of 2 then 3
        {4, 0, 1, 8, 3, 2, 1},  // a single element
        {4, 1, 0, 4, 1, 0, 0},  // nothing
        {5, 4, 0, 3, 2, 1, 5},  // wraps in both rings, several times in the destination
        {8, 7, 1, 8, 0, 0, 8},  // a whole ring starting at the wrap
    };
    for (const auto& c : cases) {
        std::vector<double> src(c.sSize), dst(c.dSize, -1.0);
        std::iota(src.begin(), src.end(), 10.0);
        // Reference: element by element with a full modulo, independent of the chunking under test.
        std::vector<double> expected = dst;
        for (uint64_t i = 0; i < c.count; ++i)
            expected[(c.dCur + c.dOff + i) % c.dSize] = src[(c.sCur + c.sOff + i) % c.sSize];
        CircularBuffer<double> s, d;
        s.SetBuffer(src.data(), c.sSize, 1, c.sCur);
        d.SetBuffer(dst.data(), c.dSize, 1, c.dCur);
        s.Copy(c.sOff, &d, c.dOff, c.count);
        EXPECT_EQ(dst, expected) << "source size " << c.sSize << " count " << c.count;
        EXPECT_TRUE(s.GetCurrentIndex() == c.sCur && d.GetCurrentIndex() == c.dCur);
    }
}
