// KV2_RX_x64.so under a careless or hostile host: instances that fail,
// null pointers, nonsense sizes, foreign handles, parameters that break the
// design, allocation failure and the deliberate abort on an overlong blank
// run. Every case must end in a clear result (and a message where one can be
// handed out), never in a crash or an exception crossing the C interface.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <climits>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "AmiLibrary.h"
#include "ChildProcess.h"
#include "SameBits.h"

using namespace ami_test;
using kv2_test::RunInChild;
using kv2_test::SameBits;

namespace {

class HostileHost : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(Ami().Loaded()) << dlerror(); }
};

// kFull with another value for one parameter.
std::string With(const std::string& parameter, const std::string& value) {
    std::string text = kFull;
    const size_t at = text.find("(" + parameter + " ") + parameter.size() + 2;
    return text.replace(at, text.find(')', at) - at, value);
}

}  // namespace

TEST_F(HostileHost, FailedInstancesSayWhyAndStillClose) {
    const std::string setupFailed = "Error occurred in KV2_RX::Setup(). ";
    const struct { const char* text; std::string msg, err; } cases[] = {
        {"(KV2_RX (SamplesPerBit 15))", NotFound("SampleRate") + NotFound("EQ") + NotFound("Corner") + setupFailed,
         "Latency must be lager than or equal to 0 and smaller than or equal to SamplesPerBit / 2.\n"},
        {"(KV2_RX (SampleRate 0) (EQ 1) (SamplesPerBit 32) (Corner \"Typ\"))", setupFailed, "SampleRate must be >0\n"},
        {nullptr, "The IBIS-AMI model, KV2_RX, received no parameter text (AMI_parameters_in is null). ", ""},
    };
    for (const auto& c : cases) {
        testing::internal::CaptureStderr();
        const Instance in = Open(c.text);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), c.err);
        EXPECT_EQ(in.result, 0);
        ASSERT_NE(in.msg, nullptr);
        EXPECT_EQ(std::string(in.msg), c.msg);
        // A simulator may still call AMI_GetWave: nothing was wired, nothing is touched.
        std::vector<double> wave = {0.25, -0.25, 0.5};
        double clock = 7.0;
        EXPECT_EQ(Ami().getWave(wave.data(), 3, &clock, nullptr, in.handle), 0);
        EXPECT_EQ(wave, (std::vector<double>{0.25, -0.25, 0.5}));
        EXPECT_EQ(clock, 7.0);
        EXPECT_EQ(Ami().close(in.handle), 1);
    }
}

TEST_F(HostileHost, NullInitArgumentsFailWithAMessage) {
    // Nowhere to store the handle: nothing is created, the reason is said.
    std::string text = kFull;
    char* msg = nullptr;
    EXPECT_EQ(Ami().init(nullptr, 0, 0, 1e-12, 32e-12, text.data(), nullptr, nullptr, &msg), 0);
    ASSERT_NE(msg, nullptr);
    EXPECT_EQ(std::string(msg), "The IBIS-AMI model, KV2_RX, cannot initialize: AMI_memory_handle is null. ");
    EXPECT_EQ(Ami().init(nullptr, 0, 0, 1e-12, 32e-12, text.data(), nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(Ami().init(nullptr, 0, 0, 1e-12, 32e-12, nullptr, nullptr, nullptr, nullptr), 0);

    // No msg pointer: the instance works as one that has it, with and without something to say.
    const std::vector<double> input = Nrz(2000, 1);
    for (std::string parameters : {std::string(kFull), std::string("(KV2_RX (EQ 5) (SamplesPerBit 32))")}) {
        void* handle = nullptr;
        EXPECT_EQ(Ami().init(nullptr, 0, 0, 1e-12, 32e-12, parameters.data(), nullptr, &handle, nullptr), 1);
        std::vector<double> w = input;
        EXPECT_EQ(Ami().getWave(w.data(), static_cast<long>(w.size()), nullptr, nullptr, handle), 1);
        EXPECT_EQ(Ami().close(handle), 1);
        EXPECT_TRUE(SameBits(w, Equalized(parameters, input))) << parameters;
    }
}

TEST_F(HostileHost, BadWaveArgumentsFailAndDisturbNothing) {
    const std::vector<double> input = Nrz(3000, 2);
    const Instance s = Open(kFull);
    ASSERT_EQ(s.result, 1);
    std::vector<double> scratch = {0.125, 0.25}, clocks = {3.0, 3.0};
    const struct { double* wave; long size, expected; } cases[] = {
        {nullptr, 5, 0}, {scratch.data(), -1, 0}, {scratch.data(), LONG_MIN, 0}, {nullptr, -1, 0}, {nullptr, 0, 1},
    };
    for (const auto& c : cases) {
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
    // Memory of the host's own (zeros, random bytes), a misaligned pointer
    // into a live instance, null.
    std::vector<uint64_t> zeros(64 * 1024 / 8, 0), noise(64 * 1024 / 8);
    std::mt19937_64 rng(7);
    for (uint64_t& v : noise) v = rng();
    const std::vector<uint64_t> zerosBefore = zeros, noiseBefore = noise;
    const Instance live = Open(kFull);
    std::vector<double> wave = {0.5, -0.5};
    double clock = 3.0;
    for (void* foreign : {static_cast<void*>(zeros.data()), static_cast<void*>(noise.data()),
                          static_cast<void*>(static_cast<char*>(live.handle) + 1), static_cast<void*>(nullptr)}) {
        EXPECT_EQ(Ami().getWave(wave.data(), 2, &clock, nullptr, foreign), 0);
        EXPECT_EQ(Ami().close(foreign), 0);
    }
    EXPECT_EQ(zeros, zerosBefore);
    EXPECT_EQ(noise, noiseBefore);
    EXPECT_EQ(wave, (std::vector<double>{0.5, -0.5}));
    EXPECT_EQ(clock, 3.0);
    EXPECT_EQ(Ami().close(live.handle), 1);
}

TEST_F(HostileHost, SampleRatesThatBreakTheDesignNeverCrash) {
    // NaN passes every Setup check (each is a comparison NaN fails) and is
    // then refused by each of the sixteen CTLE designs. 1e300 puts the
    // bilinear constant K = 2 fs past the double range: every a0 is
    // infinite, the taps NaN, and nothing fails. Streaming through either
    // instance must simply run, sample after sample.
    std::string sixteen;
    for (int k = 0; k < 16; ++k) sixteen += "SampleRate must be positive.\n";
    const struct { const char* rate; long result; const char* msg; std::string err; } cases[] = {
        {"nan", 0, "Error occurred in KV2_RX::Initialize(). ", sixteen},
        {"1e300", 1, "untouched", ""},
    };
    for (const auto& c : cases) {
        char sentinel[] = "untouched";
        testing::internal::CaptureStderr();
        const Instance s = Open(With("SampleRate", c.rate).c_str(), sentinel);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), c.err);
        EXPECT_EQ(s.result, c.result);
        EXPECT_EQ(std::string(s.msg), c.msg);
        std::vector<double> wave = Nrz(500, 3);
        double clock = 3.0;
        testing::internal::CaptureStderr();
        for (long at = 0; at < 500; at += 100) Ami().getWave(wave.data() + at, 100, &clock, nullptr, s.handle);
        testing::internal::GetCapturedStderr();
        EXPECT_EQ(clock, -1.0);
        EXPECT_TRUE(std::isnan(wave.back())) << c.rate;  // no number can come out of such a design
        EXPECT_EQ(Ami().close(s.handle), 1);
    }
}

TEST_F(HostileHost, EqualizerSettingsOutsideTheBank) {
    const std::vector<double> input = Nrz(300, 4);
    // In int range but no filter: each call fails at its first sample, says
    // so on standard error and leaves the block as it was, on the block
    // path's fallback too.
    for (const char* eq : {"16", "-1", "2147483647", "-2147483648"}) {
        const Instance s = Open(With("EQ", eq).c_str());
        EXPECT_EQ(s.result, 1) << eq;
        for (const long block : {1L, 7L, 300L}) {
            std::vector<double> wave = input;
            double clock = 3.0;
            testing::internal::CaptureStderr();
            EXPECT_EQ(Ami().getWave(wave.data(), block, &clock, nullptr, s.handle), 0) << eq;
            EXPECT_EQ(testing::internal::GetCapturedStderr(), std::string("Control input signal value is equal to ") +
                                                                  eq + ".  There are 16 inputs connected.  "
                                                                       "The valid control input range is [0,15].\n");
            EXPECT_TRUE(SameBits(wave, input)) << eq;
            EXPECT_EQ(clock, -1.0);
        }
        EXPECT_EQ(Ami().close(s.handle), 1);
    }
    // Beyond int: not readable as the setting, so the default (0) is kept and said so.
    const Instance big = Open(With("EQ", "1e10").c_str());
    EXPECT_EQ(big.result, 1);
    EXPECT_EQ(std::string(big.msg), NotFound("EQ"));
    std::vector<double> wave = input;
    EXPECT_EQ(Ami().getWave(wave.data(), 300, nullptr, nullptr, big.handle), 1);
    EXPECT_EQ(Ami().close(big.handle), 1);
    EXPECT_TRUE(SameBits(wave, Equalized(With("EQ", "0"), input)));
}

TEST_F(HostileHost, ANamelessOuterGroupStillNamesTheParameters) {
    // The outer group has no name, so the dotted paths start at KV2_RX as usual.
    char sentinel[] = "untouched";
    const Instance s = Open(("(" + With("EQ", "3") + ")").c_str(), sentinel);
    EXPECT_EQ(s.result, 1);
    EXPECT_EQ(s.msg, sentinel);
    const std::vector<double> input = Nrz(1500, 5);
    std::vector<double> wave = input;
    EXPECT_EQ(Ami().getWave(wave.data(), 1500, nullptr, nullptr, s.handle), 1);
    EXPECT_EQ(Ami().close(s.handle), 1);
    EXPECT_TRUE(SameBits(wave, Equalized(With("EQ", "3"), input)));
}

TEST_F(HostileHost, A121BlankRunAbortsWithTheAssertionLineOnly) {
    const std::string blanks = " \t\n\r\v\f";
    for (const size_t count : {120u, 121u}) {
        std::string text = "(KV2_RX";
        for (size_t i = 0; i < count; ++i) text += blanks[i % blanks.size()];
        text += "(EQ 3) (SampleRate 1e12) (SamplesPerBit 32) (Corner \"Typ\"))";
        const kv2_test::ChildResult r = RunInChild([&] {
            const Instance in = Open(text.c_str());
            return in.result == 1 && Ami().close(in.handle) == 1 ? 0 : 1;
        });
        EXPECT_EQ(r.bAborted, count == 121) << count;
        EXPECT_EQ(r.nExit, count == 121 ? -1 : 0) << count;
        EXPECT_EQ(r.sStdout, count == 121 ? "cmn.cpp:616:assertion failed.\n" : "") << count;
    }
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
    struct Block { Block* next; };
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
    int outcomes[2] = {0, 0};  // successes, failures
    for (size_t budget = 0; budget <= 256 * 1024; budget += 4 * 1024) {
        const kv2_test::ChildResult r = RunInChild([budget] {
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
        ++outcomes[r.nExit];
        EXPECT_TRUE(budget > 0 || r.nExit == 1) << "no heap at all, yet AMI_Init succeeded";
    }
    EXPECT_GT(outcomes[0], 0);
    EXPECT_GT(outcomes[1], 0);
}
#endif
