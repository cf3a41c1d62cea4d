// Sixteen KV2_RX instances, one per equalizer setting, each driven by its
// own thread at the same time, must produce bit for bit what the same
// instances produce run one after another. The library is loaded as a
// simulator loads it (dlopen); under ThreadSanitizer this is the race check.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "AmiLibrary.h"
#include "SameBits.h"

using namespace ami_test;

namespace {

constexpr int kInstances = 16;

// One whole session of instance k: its own setting and input, in blocks
// whose sizes differ per instance (block boundaries must not matter either).
std::vector<double> Session(int k) {
    return Equalized("(KV2_RX (SampleRate 1e12) (EQ " + std::to_string(k) + ") (SamplesPerBit 32) (Corner \"Typ\"))",
                     Nrz(24000, 1000u + static_cast<unsigned>(k), 0.02), 257 + 97 * static_cast<size_t>(k));
}

}  // namespace

TEST(AmiConcurrency, SixteenThreadsMatchTheSequentialRunsBitForBit) {
    ASSERT_TRUE(Ami().Loaded()) << dlerror();
    std::vector<std::vector<double>> sequential, parallel(kInstances);
    for (int k = 0; k < kInstances; ++k) sequential.push_back(Session(k));

    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int k = 0; k < kInstances; ++k) {
        threads.emplace_back([&, k] {
            // Start together, so that the initialisations overlap as well.
            ready.fetch_add(1);
            while (ready.load() < kInstances) std::this_thread::yield();
            parallel[k] = Session(k);
        });
    }
    for (std::thread& t : threads) t.join();
    for (int k = 0; k < kInstances; ++k) EXPECT_TRUE(kv2_test::SameBits(parallel[k], sequential[k])) << "instance " << k;
}
