// The library under a host's floating-point environment: whatever rounding
// mode, flush-to-zero, denormals-are-zero or unmasked exceptions the host
// runs with, every equalizer gives the bits of the default environment, no
// exception traps, and each entry point hands the host's MXCSR back as it
// found it, also on its failure paths.
#include <gtest/gtest.h>
#include <immintrin.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "AmiLibrary.h"
#include "ChildProcess.h"
#include "SameBits.h"

using namespace ami_test;

namespace {

constexpr unsigned kDefault = 0x1F80;  // round to nearest, every exception masked

// Every equalizer on a burst followed by enough silence for the filter state
// to decay into subnormals (where FTZ, DAZ and underflow show), in two calls;
// then the failure paths: no handle slot, a failing Setup, no instance.
// False when a call gave another result or, with `check`, changed MXCSR.
bool RunAll(std::vector<double>& out, bool check, unsigned mxcsr) {
    bool ok = true;
    const auto expect = [&](long got, long want) { ok = ok && got == want && (!check || _mm_getcsr() == mxcsr); };
    const AmiLibrary& ami = Ami();
    std::vector<double> burst = Nrz(256, 7);
    burst.resize(40000, 0.0);
    double clock = 0.0;
    void* handle = nullptr;
    char* msg = nullptr;
    for (int eq = 0; eq < 16; ++eq) {
        std::string text = "(KV2_RX (EQ " + std::to_string(eq) + ") (SamplesPerBit 32))";
        expect(ami.init(nullptr, 0, 0, 1e-12, 32e-12, text.data(), nullptr, &handle, &msg), 1);
        std::vector<double> w = burst;
        expect(ami.getWave(w.data(), 20000, &clock, nullptr, handle), 1);
        expect(ami.getWave(w.data() + 20000, 20000, &clock, nullptr, handle), 1);
        expect(ami.close(handle), 1);
        out.insert(out.end(), w.begin(), w.end());
    }
    std::string bad = "(KV2_RX (SamplesPerBit 4))";
    expect(ami.init(nullptr, 0, 0, 1e-12, 32e-12, bad.data(), nullptr, nullptr, &msg), 0);
    expect(ami.init(nullptr, 0, 0, 1e-12, 32e-12, bad.data(), nullptr, &handle, &msg), 0);
    expect(ami.getWave(nullptr, 0, nullptr, nullptr, handle), 0);
    expect(ami.close(handle), 1);
    expect(ami.getWave(nullptr, 0, nullptr, nullptr, nullptr), 0);
    expect(ami.close(nullptr), 0);
    return ok;
}

}  // namespace

TEST(KV2_RX_AMI_FpEnvironment, EveryHostModeGivesTheDefaultBitsAndGetsItsMxcsrBack) {
    ASSERT_TRUE(Ami().Loaded());
    ASSERT_EQ(_mm_getcsr() & ~0x3Fu, kDefault);
    std::vector<double> reference;
    ASSERT_TRUE(RunAll(reference, false, 0));
    bool subnormal = false;
    for (double x : reference) subnormal = subnormal || (x != 0.0 && std::abs(x) < 2.2250738585072014e-308);
    ASSERT_TRUE(subnormal) << "the tail never reaches subnormals: FTZ and DAZ would go untested";

    const struct { const char* name; unsigned mxcsr; } modes[] = {
        {"sticky flags set", kDefault | 0x3F}, {"round down", kDefault | 0x2000}, {"round up", kDefault | 0x4000},
        {"toward zero", kDefault | 0x6000}, {"FTZ", kDefault | 0x8000}, {"DAZ", kDefault | 0x40},
        {"FTZ and DAZ", kDefault | 0x8040}, {"underflow unmasked", kDefault & ~0x800u},
        {"overflow unmasked", kDefault & ~0x400u}, {"invalid unmasked", kDefault & ~0x80u},
        {"divide by zero unmasked", kDefault & ~0x200u}, {"denormal operand unmasked", kDefault & ~0x100u},
        {"precision unmasked", kDefault & ~0x1000u}, {"all unmasked, round up, FTZ, DAZ", 0xC040},
    };
    for (const auto& mode : modes) {
        SCOPED_TRACE(mode.name);
        const kv2_test::ChildResult r = kv2_test::RunInChild([&] {
            _mm_setcsr(mode.mxcsr);
            std::vector<double> out;
            const bool kept = RunAll(out, true, mode.mxcsr);
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
