// CircularBuffer and CircularBufferBusT: index arithmetic with its single
// wrap, chunked ring-to-ring copies, zeroing, memory and bus resizing.
#include <gtest/gtest.h>

#include <numeric>
#include <vector>

#include "dataflow/CircularBuffer.h"
#include "dataflow/CircularBufferBusT.h"

using namespace TesselModelBuilder;

namespace {

// Reference copy: element by element with a full modulo, independent of the
// chunking under test.
std::vector<double> NaiveRingCopy(std::vector<double> dst, uint64_t dcur, uint64_t doff,
                                  const std::vector<double>& src, uint64_t scur,
                                  uint64_t soff, uint64_t count) {
    for (uint64_t i = 0; i < count; ++i)
        dst[(dcur + doff + i) % dst.size()] = src[(scur + soff + i) % src.size()];
    return dst;
}

}  // namespace

TEST(CircularBuffer, FreshBufferHasTheDefaultState) {
    CircularBuffer<double> d;
    CircularBuffer<int> i;
    EXPECT_EQ(d.m_iRate, 1u);
    EXPECT_EQ(d.m_iHistoryDepth, 1u);
    EXPECT_FALSE(d.m_bContiguousBuffer);
    EXPECT_EQ(d.m_iSizeOf, 8u);
    EXPECT_EQ(i.m_iSizeOf, 4u);
    EXPECT_EQ(d.m_iCurrent, 0u);
    EXPECT_EQ(d.m_pBuffer, nullptr);
    EXPECT_EQ(d.m_iSize, 0u);
    EXPECT_TRUE(d.m_bIsConnected);
}

TEST(CircularBuffer, PositionsWrapWithOneSubtractionAndZeroClearsThem) {
    double ring[4] = {1, 2, 3, 4};
    CircularBuffer<double> b;
    b.SetBuffer(ring, 4, 1, 3);
    EXPECT_EQ(b.IndexAt(0), 3u);
    EXPECT_EQ(b.IndexAt(1), 0u);
    EXPECT_EQ(b.IndexAt(3), 2u);
    EXPECT_EQ(b.GetReadPtr(2), &ring[1]);
    EXPECT_TRUE(b.Zero(1, 2, nullptr));
    EXPECT_EQ(std::vector<double>(ring, ring + 4), (std::vector<double>{0, 0, 3, 4}));
    EXPECT_TRUE(b.Zero(0, 0, nullptr));
    EXPECT_EQ(ring[3], 4.0);

    b.SetRate(2);
    b.Advance();  // 3 + 2 wraps to 1
    EXPECT_EQ(b.GetCurrentIndex(), 1u);
    b.Advance();
    EXPECT_EQ(b.GetCurrentIndex(), 3u);
}

TEST(CircularBuffer, RingToRingCopyMatchesAnElementwiseReference) {
    struct Case { uint64_t sSize, sCur, sOff, dSize, dCur, dOff, count; };
    const Case cases[] = {
        {4, 2, 0, 8, 6, 0, 5},   // chunks of 2 then 3
        {4, 0, 1, 8, 3, 2, 1},   // a single element
        {4, 1, 0, 4, 1, 0, 0},   // nothing
        {5, 4, 0, 3, 2, 1, 5},   // wraps in both rings, several times in the destination
        {8, 7, 1, 8, 0, 0, 8},   // a whole ring starting at the wrap
    };
    for (const Case& c : cases) {
        std::vector<double> src(c.sSize), dst(c.dSize, -1.0);
        std::iota(src.begin(), src.end(), 10.0);
        CircularBuffer<double> s, d;
        s.SetBuffer(src.data(), c.sSize, 1, c.sCur);
        d.SetBuffer(dst.data(), c.dSize, 1, c.dCur);
        const auto expected = NaiveRingCopy(dst, c.dCur, c.dOff, src, c.sCur, c.sOff, c.count);
        s.Copy(c.sOff, &d, c.dOff, c.count);
        EXPECT_EQ(dst, expected) << "source size " << c.sSize << " count " << c.count;
        EXPECT_EQ(s.GetCurrentIndex(), c.sCur);
        EXPECT_EQ(d.GetCurrentIndex(), c.dCur);
    }
}

TEST(CircularBuffer, MemoryIsFreedOnlyWhenAskedAndNullResetsTheRing) {
    CircularBuffer<int> b;
    b.ResizeMemory(3);
    EXPECT_EQ(b.GetSize(), 3u);
    ASSERT_NE(b.GetBufferMemory(), nullptr);
    void* other = b.AllocateMemory(5);
    b.SetBuffer(b.m_pBuffer, 3, 1, 2);
    b.DeallocateMemory(other);  // frees `other` only
    EXPECT_EQ(b.GetSize(), 3u);
    EXPECT_EQ(b.GetCurrentIndex(), 2u);
    b.DeallocateMemory(nullptr);
    EXPECT_EQ(b.m_pBuffer, nullptr);
    EXPECT_EQ(b.GetSize(), 0u);
    EXPECT_EQ(b.GetCurrentIndex(), 0u);
    b.m_iCurrent = 4;
    b.m_iSize = 7;
    b.DeallocateMemory(nullptr);  // null memory still resets
    EXPECT_EQ(b.GetCurrentIndex(), 0u);
    EXPECT_EQ(b.GetSize(), 0u);
}

TEST(CircularBufferBusT, SameCountKeepsBuffersOtherCountsStartAfresh) {
    CircularBufferBusT<CircularBuffer<double>> bus;
    EXPECT_EQ(bus.m_pCirBufBus, nullptr);
    bus.Initialize(16);
    ASSERT_EQ(bus.m_iSize, 16u);
    double slot = 0;
    bus.Get(5)->SetBuffer(&slot, 1, 3, 0);
    bus.Get(5)->SetHistoryDepth(9);
    CircularBuffer<double>* before = bus.m_pCirBufBus;
    bus.Initialize(16);
    EXPECT_EQ(bus.m_pCirBufBus, before);
    EXPECT_EQ(bus.Get(5)->GetRate(), 3u);
    EXPECT_EQ(bus.Get(5)->GetHistoryDepth(), 9u);

    bus.Initialize(2);
    EXPECT_EQ(bus.m_iSize, 2u);
    EXPECT_EQ(bus.Get(1)->GetRate(), 1u);
    EXPECT_EQ(bus.Get(1)->m_pBuffer, nullptr);

    bus.Initialize(0);
    EXPECT_EQ(bus.m_iSize, 0u);
    EXPECT_EQ(bus.m_pCirBufBus, nullptr);
}
