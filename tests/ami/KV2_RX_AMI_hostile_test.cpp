// KV2_RX_x64.so under a careless or hostile host: null pointers, nonsense
// sizes, foreign handles, parameters that break the design, allocation
// failure and the deliberate abort on an overlong blank run. Every case
// must end in a clear result (and a message where one can be handed out),
// never in a crash or an exception crossing the C interface.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "ami/AMIContainer.h"
#include "tests/ami/ChildRun.h"

namespace {

using ami_test::ChildResult;
using ami_test::InChild;
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

const char kFull[] = "(KV2_RX (SampleRate 1e12) (EQ 5) (SamplesPerBit 32) (Corner \"Typ\"))";

std::string NotFound(const char* name) {
    return std::string("The IBIS-AMI model, KV2_RX, is unable to initialize the parameter ") + name +
           " from the AMI_Init arguments.  The model will use the default setting. ";
}

struct Session {
    long result = -1;
    void* handle = nullptr;
    char* msg = nullptr;
};

Session Open(std::string parameters, char* sentinel = nullptr) {
    Session s;
    s.msg = sentinel;
    s.result = Ami().init(nullptr, 0, 0, 1e-12, 32e-12, parameters.data(), nullptr, &s.handle, &s.msg);
    return s;
}

std::vector<double> Nrz(size_t n) {
    std::vector<double> wave(n);
    std::mt19937 rng(20240611u);
    double level = 0.5;
    for (size_t i = 0; i < n; ++i) {
        if (i % 32 == 0) level = (rng() & 1) ? 0.5 : -0.5;
        wave[i] = level;
    }
    return wave;
}

// The waveform after one fresh instance of `parameters` equalized it.
std::vector<double> Equalized(const std::string& parameters, std::vector<double> wave) {
    Session s = Open(parameters);
    double clock = 0.0;
    EXPECT_EQ(Ami().getWave(wave.data(), static_cast<long>(wave.size()), &clock, nullptr, s.handle), 1);
    EXPECT_EQ(Ami().close(s.handle), 1);
    return wave;
}

bool SameBits(const std::vector<double>& a, const std::vector<double>& b) {
    return a.size() == b.size() && (a.empty() || memcmp(a.data(), b.data(), a.size() * sizeof(double)) == 0);
}

}  // namespace

class HostileHost : public testing::Test {
protected:
    void SetUp() override { ASSERT_NE(Ami().init, nullptr) << dlerror(); }
};

TEST_F(HostileHost, NullInitArgumentsFailWithAMessage) {
    const std::string noText = "The IBIS-AMI model, KV2_RX, received no parameter text (AMI_parameters_in is null). ";
    const std::string noHandle = "The IBIS-AMI model, KV2_RX, cannot initialize: AMI_memory_handle is null. ";

    // No parameter text: a failed instance that still closes.
    void* handle = nullptr;
    char* msg = nullptr;
    EXPECT_EQ(Ami().init(nullptr, 0, 0, 1e-12, 32e-12, nullptr, nullptr, &handle, &msg), 0);
    ASSERT_NE(handle, nullptr);
    ASSERT_NE(msg, nullptr);
    EXPECT_EQ(std::string(msg), noText);
    std::vector<double> wave = {0.5, -0.5, 0.25};
    double clock = 3.0;
    EXPECT_EQ(Ami().getWave(wave.data(), 3, &clock, nullptr, handle), 0);
    EXPECT_EQ(wave, (std::vector<double>{0.5, -0.5, 0.25}));
    EXPECT_EQ(clock, 3.0);
    EXPECT_EQ(Ami().close(handle), 1);

    // Nowhere to store the handle: nothing is created, the reason is said.
    std::string text = kFull;
    msg = nullptr;
    EXPECT_EQ(Ami().init(nullptr, 0, 0, 1e-12, 32e-12, text.data(), nullptr, nullptr, &msg), 0);
    ASSERT_NE(msg, nullptr);
    EXPECT_EQ(std::string(msg), noHandle);
    EXPECT_EQ(Ami().init(nullptr, 0, 0, 1e-12, 32e-12, text.data(), nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(Ami().init(nullptr, 0, 0, 1e-12, 32e-12, nullptr, nullptr, nullptr, nullptr), 0);

    // No msg pointer: the instance works exactly as one that has it, with
    // and without something to say.
    const std::vector<double> input = Nrz(2000);
    for (const std::string& parameters : {std::string(kFull), std::string("(KV2_RX (EQ 5) (SamplesPerBit 32))")}) {
        std::string copy = parameters;
        handle = nullptr;
        EXPECT_EQ(Ami().init(nullptr, 0, 0, 1e-12, 32e-12, copy.data(), nullptr, &handle, nullptr), 1);
        std::vector<double> w = input;
        EXPECT_EQ(Ami().getWave(w.data(), static_cast<long>(w.size()), &clock, nullptr, handle), 1);
        EXPECT_EQ(Ami().close(handle), 1);
        EXPECT_TRUE(SameBits(w, Equalized(parameters, input))) << parameters;
    }
}

TEST_F(HostileHost, BadWaveArgumentsFailAndDisturbNothing) {
    const std::vector<double> input = Nrz(3000);
    Session s = Open(kFull);
    ASSERT_EQ(s.result, 1);
    std::vector<double> scratch = {0.125, 0.25};
    std::vector<double> clocks = {3.0, 3.0};
    struct Case {
        double* wave;
        long size;
        long expected;
    };
    const Case cases[] = {
        {nullptr, 5, 0}, {scratch.data(), -1, 0}, {scratch.data(), LONG_MIN, 0},
        {nullptr, -1, 0}, {nullptr, 0, 1},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(Ami().getWave(c.wave, c.size, clocks.data(), nullptr, s.handle), c.expected) << c.size;
        EXPECT_EQ(scratch, (std::vector<double>{0.125, 0.25})) << c.size;
        EXPECT_EQ(clocks, (std::vector<double>{3.0, 3.0})) << c.size;
    }
    // Without clock_times the block is still equalized; the instance then
    // carries on as if the bad calls had never been made.
    std::vector<double> wave = input;
    EXPECT_EQ(Ami().getWave(wave.data(), 1000, nullptr, nullptr, s.handle), 1);
    EXPECT_EQ(Ami().getWave(wave.data() + 1000, 2000, clocks.data(), nullptr, s.handle), 1);
    EXPECT_EQ(clocks, (std::vector<double>{-1.0, 3.0}));
    EXPECT_EQ(Ami().close(s.handle), 1);
    EXPECT_TRUE(SameBits(wave, Equalized(kFull, input)));
}

TEST_F(HostileHost, NullAndForeignHandlesAreRejected) {
    std::vector<double> wave = {0.5, -0.5};
    double clock = 3.0;
    EXPECT_EQ(Ami().getWave(wave.data(), 2, &clock, nullptr, nullptr), 0);
    EXPECT_EQ(Ami().close(nullptr), 0);

    // Memory of the host's own, large enough to be read as an instance:
    // zeros, random bytes, and a misaligned pointer into a live instance.
    static_assert(sizeof(AMIContainer) <= 64 * 1024, "foreign block smaller than an instance");
    std::vector<uint64_t> zeros(64 * 1024 / 8, 0);
    std::vector<uint64_t> noise(64 * 1024 / 8);
    std::mt19937_64 rng(7);
    for (uint64_t& v : noise) v = rng();
    const std::vector<uint64_t> zerosBefore = zeros, noiseBefore = noise;
    for (void* foreign : {static_cast<void*>(zeros.data()), static_cast<void*>(noise.data())}) {
        EXPECT_EQ(Ami().getWave(wave.data(), 2, &clock, nullptr, foreign), 0);
        EXPECT_EQ(Ami().close(foreign), 0);
    }
    EXPECT_EQ(zeros, zerosBefore);
    EXPECT_EQ(noise, noiseBefore);
    EXPECT_EQ(wave, (std::vector<double>{0.5, -0.5}));
    EXPECT_EQ(clock, 3.0);

    Session s = Open(kFull);
    void* skewed = static_cast<char*>(s.handle) + 1;
    EXPECT_EQ(Ami().getWave(wave.data(), 2, &clock, nullptr, skewed), 0);
    EXPECT_EQ(Ami().close(skewed), 0);
    EXPECT_EQ(Ami().close(s.handle), 1);
}

TEST_F(HostileHost, SampleRatesThatBreakTheDesignNeverCrash) {
    // NaN passes every Setup check (each is a comparison NaN fails) and is
    // then refused by each of the sixteen CTLE designs.
    testing::internal::CaptureStderr();
    Session s = Open("(KV2_RX (SampleRate nan) (EQ 2) (SamplesPerBit 32) (Corner \"Typ\"))");
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(s.result, 0);
    ASSERT_NE(s.handle, nullptr);
    EXPECT_EQ(std::string(s.msg), "Error occurred in KV2_RX::Initialize(). ");
    std::string sixteen;
    for (int k = 0; k < 16; ++k) sixteen += "SampleRate must be positive.\n";
    EXPECT_EQ(err, sixteen);

    // 1e300 samples per second puts the bilinear constant K = 2 fs = 2e300
    // past the double range: every section's a0 = (K - p)(K - p') is
    // infinite, the normalised taps are NaN, and nothing fails. Streaming
    // through either instance must simply run, sample after sample.
    Session huge = Open("(KV2_RX (SampleRate 1e300) (EQ 2) (SamplesPerBit 32) (Corner \"Typ\"))");
    EXPECT_EQ(huge.result, 1);
    for (void* handle : {s.handle, huge.handle}) {
        std::vector<double> wave = Nrz(500);
        double clock = 3.0;
        testing::internal::CaptureStderr();
        for (long at = 0; at < 500; at += 100) Ami().getWave(wave.data() + at, 100, &clock, nullptr, handle);
        testing::internal::GetCapturedStderr();
        EXPECT_EQ(clock, -1.0);
        EXPECT_TRUE(std::isnan(wave.back()));  // no number can come out of such a design
        EXPECT_EQ(Ami().close(handle), 1);
    }
}

TEST_F(HostileHost, EqualizerSettingsOutsideTheBank) {
    const std::vector<double> input = Nrz(300);
    const std::string rangeMessage = ".  There are 16 inputs connected.  The valid control input range is [0,15].\n";
    // In int range but no filter: each call fails at its first sample and
    // leaves the block as it was, on the block path's fallback too.
    for (const char* eq : {"16", "2147483647", "-2147483648"}) {
        Session s = Open(std::string("(KV2_RX (SampleRate 1e12) (EQ ") + eq + ") (SamplesPerBit 32) (Corner \"Typ\"))");
        EXPECT_EQ(s.result, 1) << eq;
        for (const long block : {1L, 7L, 300L}) {
            std::vector<double> wave = input;
            testing::internal::CaptureStderr();
            EXPECT_EQ(Ami().getWave(wave.data(), block, nullptr, nullptr, s.handle), 0) << eq;
            EXPECT_EQ(testing::internal::GetCapturedStderr(),
                      std::string("Control input signal value is equal to ") + eq + rangeMessage);
            EXPECT_TRUE(SameBits(wave, input)) << eq;
        }
        EXPECT_EQ(Ami().close(s.handle), 1);
    }
    // Beyond int: not readable as the setting, so the default (0) is kept
    // and said so.
    Session big = Open("(KV2_RX (SampleRate 1e12) (EQ 1e10) (SamplesPerBit 32) (Corner \"Typ\"))");
    EXPECT_EQ(big.result, 1);
    EXPECT_EQ(std::string(big.msg), NotFound("EQ"));
    std::vector<double> wave = input;
    EXPECT_EQ(Ami().getWave(wave.data(), 300, nullptr, nullptr, big.handle), 1);
    EXPECT_EQ(Ami().close(big.handle), 1);
    EXPECT_TRUE(SameBits(wave, Equalized("(KV2_RX (SampleRate 1e12) (EQ 0) (SamplesPerBit 32) (Corner \"Typ\"))", input)));
}

TEST_F(HostileHost, ANamelessOuterGroupStillNamesTheParameters) {
    // "((KV2_RX ...))": the outer group has no name, so the parameters'
    // dotted paths start at KV2_RX as usual.
    char sentinel[] = "untouched";
    Session s = Open("((KV2_RX (SampleRate 1e12) (EQ 3) (SamplesPerBit 32) (Corner \"Slow\")))", sentinel);
    EXPECT_EQ(s.result, 1);
    EXPECT_EQ(s.msg, sentinel);
    const std::vector<double> input = Nrz(1500);
    std::vector<double> wave = input;
    EXPECT_EQ(Ami().getWave(wave.data(), 1500, nullptr, nullptr, s.handle), 1);
    EXPECT_EQ(Ami().close(s.handle), 1);
    EXPECT_TRUE(SameBits(wave, Equalized("(KV2_RX (SampleRate 1e12) (EQ 3) (SamplesPerBit 32) (Corner \"Slow\"))", input)));
}

TEST_F(HostileHost, A121BlankRunAbortsWithTheAssertionLineOnly) {
    const std::string blanks = " \t\n\r\v\f";
    auto run = [&](size_t blankCount) {
        std::string text = "(KV2_RX";
        for (size_t i = 0; i < blankCount; ++i) text += blanks[i % blanks.size()];
        text += "(EQ 3) (SampleRate 1e12) (SamplesPerBit 32) (Corner \"Typ\"))";
        return InChild([text]() mutable {
            void* handle = nullptr;
            char* msg = nullptr;
            const long r = Ami().init(nullptr, 0, 0, 1e-12, 32e-12, text.data(), nullptr, &handle, &msg);
            return r == 1 && Ami().close(handle) == 1 ? 0 : 1;
        });
    };
    const ChildResult at120 = run(120);
    EXPECT_FALSE(at120.bAborted);
    EXPECT_EQ(at120.nExit, 0);
    EXPECT_EQ(at120.sStdout, "");
    const ChildResult at121 = run(121);
    EXPECT_TRUE(at121.bAborted);
    EXPECT_EQ(at121.sStdout, "cmn.cpp:616:assertion failed.\n");
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
namespace {
// Bytes of address space the process has mapped now.
rlim_t MappedBytes() {
    std::ifstream statm("/proc/self/statm");
    unsigned long pages = 0;
    statm >> pages;
    return static_cast<rlim_t>(pages) * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}

// Takes every byte the address-space limit still allows, in small blocks,
// then gives `budget` bytes of them back: what follows runs with about
// that much heap.
void LeaveOnly(size_t budget) {
    struct Block {
        Block* next;
    };
    Block* held = nullptr;
    while (void* p = malloc(1024)) {
        Block* b = static_cast<Block*>(p);
        b->next = held;
        held = b;
    }
    for (size_t freed = 0; freed < budget && held != nullptr; freed += 1024) {
        Block* next = held->next;
        free(held);
        held = next;
    }
}
}  // namespace

TEST_F(HostileHost, RunningOutOfMemoryFailsInsteadOfThrowing) {
    // Children run the whole session with a heap budget from nothing up to
    // plenty, so that allocations inside AMI_Init and AMI_GetWave fail at
    // every possible point. No child may die (an exception escaping an
    // entry point, or the loader failing to set up the thread's exception
    // state at the first throw, ends it); small budgets must fail AMI_Init,
    // the largest must succeed.
    int failures = 0;
    int successes = 0;
    for (size_t budget = 0; budget <= 256 * 1024; budget += 4 * 1024) {
        const ChildResult r = InChild([budget] {
            std::string text = kFull;
            std::vector<double> wave(4096, 0.5);
            const rlimit limit{MappedBytes() + (4u << 20), RLIM_INFINITY};
            if (setrlimit(RLIMIT_AS, &limit) != 0) return 9;
            // A thread that has called into the model before: its share of
            // the library's thread-local data exists, so only the model's
            // own allocations are left to fail.
            Ami().close(nullptr);
            LeaveOnly(budget);
            void* handle = nullptr;
            char* msg = nullptr;
            const long init = Ami().init(nullptr, 0, 0, 1e-12, 32e-12, text.data(), nullptr, &handle, &msg);
            long streamed = 1;
            if (handle != nullptr) {
                streamed = Ami().getWave(wave.data(), 4096, nullptr, nullptr, handle);
                Ami().close(handle);
            }
            if ((init != 0 && init != 1) || (streamed != 0 && streamed != 1)) return 8;
            return init == 1 && streamed == 1 ? 0 : 1;
        });
        ASSERT_TRUE(r.nExit == 0 || r.nExit == 1) << "budget " << budget << " bytes: exit " << r.nExit
                                                  << (r.bAborted ? " (aborted)" : "") << ", stdout: " << r.sStdout;
        (r.nExit == 0 ? successes : failures) += 1;
        if (budget == 0) {
            EXPECT_EQ(r.nExit, 1);
        }
    }
    EXPECT_GT(failures, 0);
    EXPECT_GT(successes, 0);
}
#endif
