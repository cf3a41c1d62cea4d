// Handles the library never handed out, or has already taken back: each is
// refused with 0 and nothing behind it is read or written. Every wrong handle
// is tried in a child process, since a library that read through it could
// crash. Valid handles in use on many threads work as before.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "AmiLibrary.h"
#include "ChildProcess.h"
#include "SameBits.h"

using namespace ami_test;

TEST(AmiHandles, ForeignAndStaleHandlesAreRefused) {
    ASSERT_TRUE(Ami().Loaded());
    const long page = sysconf(_SC_PAGESIZE);
    char* pages = static_cast<char*>(mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(pages, MAP_FAILED);
    ASSERT_EQ(mprotect(pages + page, page, PROT_NONE), 0);  // guard page after a small block
    void* readOnly = mmap(nullptr, page, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(readOnly, MAP_FAILED);
    const Instance live = Open(kFull), closed = Open(kFull);
    ASSERT_EQ(Ami().close(closed.handle), 1);
    void* holder = live.handle;
    const uintptr_t truncated = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(live.handle));
    const struct { const char* name; void* handle; } cases[] = {
        {"small block before a guard page", pages + page - 16}, {"read-only memory", readOnly},
        {"0x1000", reinterpret_cast<void*>(0x1000)}, {"truncated to 32 bits", reinterpret_cast<void*>(truncated)},
        {"&handle", &holder}, {"closed", closed.handle},
    };
    for (const auto& c : cases) {
        if (c.handle == live.handle) continue;  // a heap below 4 GiB: truncation changes nothing
        const kv2_test::ChildResult r = kv2_test::RunInChild([&] {
            double wave[2] = {0.5, -0.5}, clock = 3.0;
            const bool refused = Ami().getWave(wave, 2, &clock, nullptr, c.handle) == 0 &&
                                 Ami().close(c.handle) == 0 && wave[0] == 0.5 && wave[1] == -0.5 && clock == 3.0;
            return refused ? 0 : 1;
        });
        EXPECT_EQ(r.nExit, 0) << c.name;
    }
    EXPECT_EQ(Ami().close(live.handle), 1);
    EXPECT_EQ(Ami().close(live.handle), 0);  // twice: the second close is stale
    munmap(pages, 2 * page);
    munmap(readOnly, page);
}

TEST(AmiHandles, ValidHandlesOnManyThreadsWorkAsBefore) {
    ASSERT_TRUE(Ami().Loaded());
    // Four streams in one-sample calls while a fifth thread keeps opening and
    // closing instances, so that every stream's handle is found again and again.
    const std::vector<double> input = Nrz(4000, 11);
    const std::vector<double> expected = Equalized(kFull, input);
    std::vector<std::vector<double>> out(4, input);
    std::vector<std::thread> threads;
    for (auto& wave : out)
        threads.emplace_back([&wave] {
            const Instance in = Open(kFull);
            double clock = 0.0;
            for (double& x : wave) EXPECT_EQ(Ami().getWave(&x, 1, &clock, nullptr, in.handle), 1);
            EXPECT_EQ(Ami().close(in.handle), 1);
        });
    threads.emplace_back([] {
        for (int i = 0; i < 50; ++i) EXPECT_EQ(Ami().close(Open(kFull).handle), 1);
    });
    for (std::thread& t : threads) t.join();
    for (const auto& wave : out) EXPECT_TRUE(kv2_test::SameBits(wave, expected));
}
