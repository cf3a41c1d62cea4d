// Sixteen KV2_RX instances, one per equalizer setting, each driven by its
// own thread at the same time, must produce bit for bit what the same
// instances produce run one after another. The library is loaded as a
// simulator loads it (dlopen); under ThreadSanitizer this is the race check.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

using InitFn = long (*)(double*, long, long, double, double, char*, char**, void**, char**);
using GetWaveFn = long (*)(double*, long, double*, char**, void*);
using CloseFn = long (*)(void*);

struct Entry {
    InitFn init = nullptr;
    GetWaveFn getWave = nullptr;
    CloseFn close = nullptr;
};

const Entry& Ami() {
    static const Entry entry = [] {
        Entry e;
        void* lib = dlopen(KV2_RX_SO_PATH, RTLD_NOW | RTLD_LOCAL);
        if (lib == nullptr) return e;
        e.init = reinterpret_cast<InitFn>(dlsym(lib, "AMI_Init"));
        e.getWave = reinterpret_cast<GetWaveFn>(dlsym(lib, "AMI_GetWave"));
        e.close = reinterpret_cast<CloseFn>(dlsym(lib, "AMI_Close"));
        return e;
    }();
    return entry;
}

constexpr int kInstances = 16;
constexpr size_t kSamples = 24000;

// Instance k's input: its own seed, so that no two threads see one waveform.
std::vector<double> Input(int k) {
    std::mt19937 rng(1000u + static_cast<unsigned>(k));
    std::uniform_real_distribution<double> noise(-0.02, 0.02);
    std::vector<double> wave(kSamples);
    double level = 0.5;
    for (size_t i = 0; i < kSamples; ++i) {
        if (i % 32 == 0) level = (rng() & 1) ? 0.5 : -0.5;
        wave[i] = level + noise(rng);
    }
    return wave;
}

struct SessionRun {
    std::vector<double> vWave;
    long nInit = -1, nWave = 1, nClose = -1;
};

// One whole session of instance k, in blocks whose sizes differ per
// instance (block boundaries must not matter either).
SessionRun Session(int k) {
    SessionRun r;
    r.vWave = Input(k);
    std::string text = "(KV2_RX (SampleRate 1e12) (EQ " + std::to_string(k) + ") (SamplesPerBit 32) (Corner \"Typ\"))";
    void* handle = nullptr;
    char* msg = nullptr;
    r.nInit = Ami().init(nullptr, 0, 0, 1e-12, 32e-12, text.data(), nullptr, &handle, &msg);
    const size_t block = 257 + 97 * static_cast<size_t>(k);
    double clock = 0.0;
    for (size_t at = 0; at < kSamples; at += block) {
        const long n = static_cast<long>(std::min(block, kSamples - at));
        if (Ami().getWave(r.vWave.data() + at, n, &clock, nullptr, handle) != 1) r.nWave = 0;
    }
    r.nClose = Ami().close(handle);
    return r;
}

}  // namespace

TEST(AmiConcurrency, SixteenThreadsMatchTheSequentialRunsBitForBit) {
    ASSERT_NE(Ami().init, nullptr) << dlerror();
    std::vector<SessionRun> sequential;
    for (int k = 0; k < kInstances; ++k) sequential.push_back(Session(k));

    std::vector<SessionRun> parallel(kInstances);
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

    for (int k = 0; k < kInstances; ++k) {
        EXPECT_EQ(sequential[k].nInit, 1) << k;
        EXPECT_EQ(sequential[k].nWave, 1) << k;
        EXPECT_EQ(parallel[k].nInit, 1) << k;
        EXPECT_EQ(parallel[k].nWave, 1) << k;
        EXPECT_EQ(parallel[k].nClose, 1) << k;
        const std::vector<double>& a = sequential[k].vWave;
        const std::vector<double>& b = parallel[k].vWave;
        ASSERT_EQ(a.size(), b.size());
        for (size_t i = 0; i < a.size(); ++i) {
            if (memcmp(&a[i], &b[i], sizeof(double)) != 0) {
                char text[96];
                snprintf(text, sizeof text, "%a vs %a", a[i], b[i]);
                ADD_FAILURE() << "instance " << k << " sample " << i << ": " << text;
                break;
            }
        }
    }
}
