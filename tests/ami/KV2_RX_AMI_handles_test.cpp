// Handles the library never handed out, or has already taken back, are
// refused with 0 and nothing behind them is read or written; each is tried in
// a child process, since reading through one could crash. (Valid handles on
// many threads while instances come and go: the concurrency test.)
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "AmiLibrary.h"
#include "ami/InstanceRegistry.h"
#include "ChildProcess.h"
#include "SameBits.h"

using namespace ami_test;

TEST(AmiHandles, ForeignAndStaleHandlesAreRefused) {
    ASSERT_TRUE(Ami().Loaded());
    // Read-only memory: a page, and a small block just before a guard page.
    const long page = sysconf(_SC_PAGESIZE);
    char* guarded = static_cast<char*>(mmap(nullptr, 2 * page, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_TRUE(guarded != MAP_FAILED && mprotect(guarded + page, page, PROT_NONE) == 0);
    void* live = Open(kFull).handle;
    void* closed = Open(kFull).handle;
    double sample = 0.25;
    ASSERT_EQ(Ami().getWave(&sample, 1, nullptr, nullptr, closed), 1);  // this thread has now seen it live
    ASSERT_EQ(Ami().close(closed), 1);
    const uintptr_t truncated = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(live));
    for (void* wrong : {static_cast<void*>(guarded), static_cast<void*>(guarded + page - 16),
                        reinterpret_cast<void*>(0x1000), reinterpret_cast<void*>(truncated), static_cast<void*>(&live),
                        closed}) {
        if (wrong == live) continue;  // a heap below 4 GiB: truncation changes nothing
        const kv2_test::ChildResult r = kv2_test::RunInChild([&] {
            double wave[2] = {0.5, -0.5}, clock = 3.0;
            const long results = Ami().getWave(wave, 2, &clock, nullptr, wrong) + Ami().close(wrong);
            return results == 0 && wave[0] == 0.5 && wave[1] == -0.5 && clock == 3.0 ? 0 : 1;
        });
        EXPECT_EQ(r.nExit, 0) << wrong;
    }
    EXPECT_EQ(Ami().close(live), 1);
    EXPECT_EQ(Ami().close(live), 0);
}

TEST(InstanceRegistry, AClosedInstanceIsForgottenAlsoByTheThreadThatLastUsedIt) {
    int a = 0, b = 0;
    ASSERT_TRUE(InstanceRegistry::Add(&a) && InstanceRegistry::Add(&b));
    EXPECT_FALSE(InstanceRegistry::Add(&a));
    EXPECT_TRUE(InstanceRegistry::Contains(&a));  // now this thread's remembered handle
    EXPECT_TRUE(InstanceRegistry::Remove(&a));
    EXPECT_FALSE(InstanceRegistry::Contains(&a));
    EXPECT_FALSE(InstanceRegistry::Remove(&a));
    EXPECT_TRUE(InstanceRegistry::Contains(&b));
    EXPECT_TRUE(InstanceRegistry::Remove(&b));
}

// The simulator that closes and re-opens per channel or corner: a closed
// instance's address is not given to the instances opened after it, so its
// stale handle is refused and cannot disturb the instance that now runs there.
TEST(AmiHandles, AStaleHandleNeverReachesALaterInstance) {
    ASSERT_TRUE(Ami().Loaded());
    const std::vector<double> wave = Nrz(3000, 7);
    const std::vector<double> expected = Equalized(kFull, wave);
    // Close, then open at once, with nothing of the test's own allocated in
    // between: where the allocator would hand the same block straight back.
    char text[sizeof kFull];
    memcpy(text, kFull, sizeof kFull);
    char* msg = nullptr;
    double clock = 0.0;
    int reused = 0;
    for (int round = 0; round < 100; ++round) {
        void* stale = nullptr;
        void* later[8] = {};
        ASSERT_EQ(Ami().init(nullptr, 0, 0, 1e-12, 32e-12, text, nullptr, &stale, &msg), 1);
        ASSERT_EQ(Ami().close(stale), 1);
        for (void*& h : later) {
            ASSERT_EQ(Ami().init(nullptr, 0, 0, 1e-12, 32e-12, text, nullptr, &h, &msg), 1);
            reused += h == stale;
        }
        std::vector<double> got = wave;
        EXPECT_EQ(Ami().getWave(got.data(), 1, &clock, nullptr, stale), 0);
        EXPECT_EQ(Ami().close(stale), 0);
        ASSERT_EQ(Ami().getWave(got.data(), static_cast<long>(got.size()), &clock, nullptr, later[7]), 1);
        EXPECT_TRUE(kv2_test::SameBits(got, expected)) << "round " << round;
        for (void* h : later) ASSERT_EQ(Ami().close(h), 1);
    }
    EXPECT_EQ(reused, 0) << "instances opened at a just-closed instance's address";
}
