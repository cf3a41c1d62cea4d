// The library under a host's floating-point environment: whatever rounding
// mode, flush-to-zero, denormals-are-zero or unmasked exceptions the host
// runs with, every equalizer gives the bits of the default environment, no
// exception traps, and each entry point hands the host's MXCSR back as it
// found it, also on its failure paths.
#include <gtest/gtest.h>
#include <immintrin.h>

#include <cstdio>
#include <cstdint>
#include <string>
#include <vector>

#include "AmiLibrary.h"
#include "ChildProcess.h"
#include "SameBits.h"

using namespace ami_test;

namespace {

constexpr unsigned kDefault = 0x1F80;     // round to nearest, all masked
constexpr int kEqualizers = 16;

// A short NRZ burst, then silence long enough for every filter's state to
// decay into subnormals and settle: the tail is where FTZ, DAZ and an
// unmasked underflow would show.
std::vector<double> BurstThenSilence() {
    std::vector<double> wave = Nrz(256, 7);
    wave.resize(40000, 0.0);
    return wave;
}

std::string Parameters(int eq) {
    return "(KV2_RX (SampleRate 1e12) (EQ " + std::to_string(eq) + ") (SamplesPerBit 32) (Corner \"Typ\"))";
}

// Every equalizer on `wave`, in two calls, outputs concatenated, then the
// failure paths (no handle slot, a failing Setup, no instance). Returns
// whether every call gave its expected result and, with `check`, left
// `mxcsr` in place.
bool RunAll(const std::vector<double>& wave, std::vector<double>& out, bool check, unsigned mxcsr) {
    bool ok = true;
    const auto expect = [&](long got, long want) { ok = ok && got == want && (!check || _mm_getcsr() == mxcsr); };
    const AmiLibrary& ami = Ami();
    double clock = 0.0;
    for (int eq = 0; eq < kEqualizers; ++eq) {
        std::string text = Parameters(eq);
        void* handle = nullptr;
        char* msg = nullptr;
        expect(ami.init(nullptr, 0, 0, 1e-12, 32e-12, text.data(), nullptr, &handle, &msg), 1);
        std::vector<double> w = wave;
        const long half = static_cast<long>(w.size() / 2);
        expect(ami.getWave(w.data(), half, &clock, nullptr, handle), 1);
        expect(ami.getWave(w.data() + half, static_cast<long>(w.size()) - half, &clock, nullptr, handle), 1);
        expect(ami.close(handle), 1);
        out.insert(out.end(), w.begin(), w.end());
    }
    std::string bad = "(KV2_RX (SamplesPerBit 4))";
    void* handle = nullptr;
    char* msg = nullptr;
    expect(ami.init(nullptr, 0, 0, 1e-12, 32e-12, bad.data(), nullptr, nullptr, &msg), 0);
    expect(ami.init(nullptr, 0, 0, 1e-12, 32e-12, bad.data(), nullptr, &handle, &msg), 0);
    expect(ami.getWave(nullptr, 0, nullptr, nullptr, handle), 0);
    expect(ami.close(handle), 1);
    expect(ami.getWave(nullptr, 0, nullptr, nullptr, nullptr), 0);
    expect(ami.close(nullptr), 0);
    return ok;
}

bool HasSubnormal(const std::vector<double>& xs) {
    for (double x : xs)
        if (x != 0.0 && x > -2.2250738585072014e-308 && x < 2.2250738585072014e-308) return true;
    return false;
}

}  // namespace

TEST(KV2_RX_AMI_FpEnvironment, EveryHostModeGivesTheDefaultBitsAndGetsItsMxcsrBack) {
    ASSERT_TRUE(Ami().Loaded());
    const std::vector<double> wave = BurstThenSilence();
    std::vector<double> reference;
    ASSERT_EQ(_mm_getcsr() & ~0x3Fu, kDefault);
    ASSERT_TRUE(RunAll(wave, reference, false, 0));
    ASSERT_TRUE(HasSubnormal(reference)) << "the tail never reaches subnormals: FTZ/DAZ untested";

    constexpr unsigned kFlags = 0x3F, kRoundDown = 0x2000, kRoundUp = 0x4000, kTowardZero = 0x6000;
    constexpr unsigned kFtz = 0x8000, kDaz = 0x0040;
    constexpr unsigned kInvalid = 0x0080, kDenormal = 0x0100, kDivide = 0x0200, kOverflow = 0x0400,
                       kUnderflow = 0x0800, kPrecision = 0x1000, kAllMasks = 0x1F80;
    const struct {
        const char* name;
        unsigned mxcsr;
    } modes[] = {
        {"default with every sticky flag set", kDefault | kFlags},
        {"round down", kDefault | kRoundDown},
        {"round up", kDefault | kRoundUp},
        {"round toward zero", kDefault | kTowardZero},
        {"flush to zero", kDefault | kFtz},
        {"denormals are zero", kDefault | kDaz},
        {"FTZ and DAZ", kDefault | kFtz | kDaz},
        {"underflow unmasked", kDefault & ~kUnderflow},
        {"overflow unmasked", kDefault & ~kOverflow},
        {"invalid unmasked", kDefault & ~kInvalid},
        {"divide by zero unmasked", kDefault & ~kDivide},
        {"denormal operand unmasked", kDefault & ~kDenormal},
        {"precision unmasked", kDefault & ~kPrecision},
        {"everything at once", (kDefault & ~kAllMasks) | kRoundUp | kFtz | kDaz},
    };
    for (const auto& mode : modes) {
        SCOPED_TRACE(mode.name);
        const kv2_test::ChildResult r = kv2_test::RunInChild([&] {
            _mm_setcsr(mode.mxcsr);
            std::vector<double> out;
            const bool kept = RunAll(wave, out, true, mode.mxcsr);
            _mm_setcsr(kDefault);
            fwrite(out.data(), sizeof(double), out.size(), stdout);
            return kept ? 0 : 2;
        });
        EXPECT_EQ(r.nExit, 0) << "2: the host's MXCSR was not restored or a call failed; -1: a signal";
        if (r.sStdout.size() != reference.size() * sizeof(double)) continue;  // it trapped
        EXPECT_TRUE(kv2_test::SameBits(reinterpret_cast<const double*>(r.sStdout.data()), reference.data(),
                                       reference.size()));
    }
}
