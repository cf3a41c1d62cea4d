// KV2_RX_x64.so under a careless or hostile host: instances that fail,
// parameters that break the design, settings outside the bank, null
// pointers, nonsense sizes, foreign handles and allocation failure. Every case must
// end in a clear result (and a message where one can be handed out), never in
// a crash or an exception crossing the C interface.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
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

TEST_F(HostileHost, FailedAndBrokenInstancesSayWhyRunSafelyAndClose) {
    // A NaN rate passes every Setup check (each is a comparison NaN fails) and
    // is refused by each of the sixteen CTLE designs; 1e300 puts K = 2 fs past
    // the double range, so every tap is NaN and nothing fails: streaming must
    // simply run. Instances never wired touch nothing; an EQ in int range but
    // outside the bank fails each call at its first sample (on the block
    // path's fallback too) and leaves the block as it was.
    const std::string setupFailed = "Error occurred in KV2_RX::Setup(). ";
    std::string sixteen;
    for (int k = 0; k < 16; ++k) sixteen += "SampleRate must be positive.\n";
    auto control = [](const char* eq) {
        return std::string("Control input signal value is equal to ") + eq +
               ".  There are 16 inputs connected.  The valid control input range is [0,15].\n";
    };
    const struct { std::string text; long result; std::string msg, err; long streamed; std::string streamErr; } cases[] = {
        {"(KV2_RX (SamplesPerBit 15))", 0, NotFound("SampleRate") + NotFound("EQ") + NotFound("Corner") + setupFailed,
         "Latency must be lager than or equal to 0 and smaller than or equal to SamplesPerBit / 2.\n", 0, ""},
        {With("SampleRate", "0"), 0, setupFailed, "SampleRate must be >0\n", 0, ""},
        {"", 0, "The IBIS-AMI model, KV2_RX, received no parameter text (AMI_parameters_in is null). ", "", 0, ""},
        {With("SampleRate", "nan"), 0, "Error occurred in KV2_RX::Initialize(). ", sixteen, 1, ""},
        {With("SampleRate", "1e300"), 1, "untouched", "", 1, ""},
        {With("EQ", "16"), 1, "untouched", "", 0, control("16")},
        {With("EQ", "-2147483648"), 1, "untouched", "", 0, control("-2147483648")},
    };
    for (const auto& c : cases) {
        char sentinel[] = "untouched";
        testing::internal::CaptureStderr();
        const Instance in = Open(c.text.empty() ? nullptr : c.text.c_str(), sentinel);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), c.err);
        EXPECT_EQ(in.result, c.result);
        EXPECT_EQ(std::string(in.msg), c.msg);
        std::vector<double> wave = Nrz(300, 3);
        const std::vector<double> before = wave;
        double clock = 7.0;
        for (long block : {1L, 299L}) {
            testing::internal::CaptureStderr();
            EXPECT_EQ(Ami().getWave(wave.data() + (block == 1 ? 0 : 1), block, &clock, nullptr, in.handle), c.streamed) << c.text;
            EXPECT_EQ(testing::internal::GetCapturedStderr(), c.streamErr) << c.text;
        }
        EXPECT_EQ(clock, c.streamed == 1 || !c.streamErr.empty() ? -1.0 : 7.0) << c.text;
        EXPECT_TRUE(c.streamed == 1 ? std::isnan(wave.back()) : SameBits(wave, before)) << c.text;
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
    // No msg pointer, yet something to say: the instance still works.
    std::string parameters = "(KV2_RX (EQ 5) (SamplesPerBit 32))";
    void* handle = nullptr;
    EXPECT_EQ(Ami().init(nullptr, 0, 0, 1e-12, 32e-12, parameters.data(), nullptr, &handle, nullptr), 1);
    EXPECT_EQ(Ami().close(handle), 1);
}

TEST_F(HostileHost, BadWaveArgumentsAndForeignHandlesFailAndDisturbNothing) {
    // Memory of the host's own (zeros, random bytes), a misaligned pointer
    // into a live instance, null: none may be read, let alone written.
    std::vector<uint64_t> zeros(64 * 1024 / 8, 0), noise(64 * 1024 / 8);
    std::generate(noise.begin(), noise.end(), std::mt19937_64(7));
    const std::vector<uint64_t> zerosBefore = zeros, noiseBefore = noise;
    const std::vector<double> input = Nrz(3000, 2);
    const Instance s = Open(kFull);
    ASSERT_EQ(s.result, 1);
    std::vector<double> scratch = {0.125, 0.25}, clocks = {3.0, 3.0};
    const struct { double* wave; long size, expected; void* handle; } cases[] = {
        {nullptr, 5, 0, s.handle}, {scratch.data(), -1, 0, s.handle}, {scratch.data(), LONG_MIN, 0, s.handle},
        {nullptr, -1, 0, s.handle}, {nullptr, 0, 1, s.handle}, {scratch.data(), 2, 0, zeros.data()},
        {scratch.data(), 2, 0, noise.data()}, {scratch.data(), 2, 0, static_cast<char*>(s.handle) + 1},
        {scratch.data(), 2, 0, nullptr},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Ami().getWave(c.wave, c.size, clocks.data(), nullptr, c.handle), c.expected) << c.size;
        if (c.handle != s.handle) EXPECT_EQ(Ami().close(c.handle), 0);
        EXPECT_EQ(scratch, (std::vector<double>{0.125, 0.25})) << c.size;
        EXPECT_EQ(clocks, (std::vector<double>{3.0, 3.0})) << c.size;
    }
    EXPECT_TRUE(zeros == zerosBefore && noise == noiseBefore);
    // Without clock_times the block is still equalized; the instance then
    // carries on as if the bad calls had never been made.
    std::vector<double> wave = input;
    EXPECT_EQ(Ami().getWave(wave.data(), 1000, nullptr, nullptr, s.handle), 1);
    EXPECT_EQ(Ami().getWave(wave.data() + 1000, 2000, clocks.data(), nullptr, s.handle), 1);
    EXPECT_EQ(clocks, (std::vector<double>{-1.0, 3.0}));
    EXPECT_EQ(Ami().close(s.handle), 1);
    EXPECT_TRUE(SameBits(wave, Equalized(kFull, input)));
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
    void** held = nullptr;  // a chain of 1 KiB blocks, each pointing at the one before
    for (void** p; (p = static_cast<void**>(malloc(1024))) != nullptr; held = p) *p = held;
    for (size_t freed = 0; freed < budget && held != nullptr; freed += 1024) {
        void** next = static_cast<void**>(*held);
        free(held);
        held = next;
    }
}
}  // namespace

TEST_F(HostileHost, RunningOutOfMemoryFailsInsteadOfThrowing) {
    // Whole sessions with heap budgets from nothing up to plenty, so that
    // allocations inside AMI_Init and AMI_GetWave fail at every point. No
    // child may die; small budgets must fail AMI_Init, the largest succeed.
    int outcomes[2] = {0, 0};  // successes, failures
    for (size_t budget = 0; budget <= 256 * 1024; budget += 4 * 1024) {
        const kv2_test::ChildResult r = RunInChild([budget] {
            std::string text = kFull;
            std::vector<double> wave(4096, 0.5);
            const rlimit limit{MappedBytes() + (4u << 20), RLIM_INFINITY};
            if (setrlimit(RLIMIT_AS, &limit) != 0) return 9;
            // A thread that has called into the model before: only the
            // model's own allocations are left to fail.
            Ami().close(nullptr);
            LeaveOnly(budget);
            void* handle = nullptr;
            char* msg = nullptr;
            const long init = Ami().init(nullptr, 0, 0, 1e-12, 32e-12, text.data(), nullptr, &handle, &msg);
            const long streamed = handle ? Ami().getWave(wave.data(), 4096, nullptr, nullptr, handle) : 1;
            if (handle) Ami().close(handle);
            return (init != 0 && init != 1) || (streamed != 0 && streamed != 1) ? 8 : init == 1 && streamed == 1 ? 0 : 1;
        });
        ASSERT_TRUE(r.nExit == 0 || r.nExit == 1) << "budget " << budget << " bytes: exit " << r.nExit
                                                  << (r.bAborted ? " (aborted)" : "") << ", stdout: " << r.sStdout;
        ++outcomes[r.nExit];
        EXPECT_TRUE(budget > 0 || r.nExit == 1) << "no heap at all, yet AMI_Init succeeded";
    }
    EXPECT_TRUE(outcomes[0] > 0 && outcomes[1] > 0);
}
#endif
