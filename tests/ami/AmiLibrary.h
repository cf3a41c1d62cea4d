// AmiLibrary: the built KV2_RX_x64.so as a simulator sees it, loaded once
// with dlopen and driven only through AMI_Init, AMI_GetWave and AMI_Close,
// with the session helpers the AMI tests share.
#pragma once

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace ami_test {

using InitFn = long (*)(double*, long, long, double, double, char*, char**, void**, char**);
using GetWaveFn = long (*)(double*, long, double*, char**, void*);
using CloseFn = long (*)(void*);

struct AmiLibrary {
    InitFn init = nullptr;
    GetWaveFn getWave = nullptr;
    CloseFn close = nullptr;
    bool Loaded() const { return init && getWave && close; }
};

// Loaded on first use and kept for the life of the process.
inline const AmiLibrary& Ami() {
    static const AmiLibrary library = [] {
        AmiLibrary l;
        if (void* so = dlopen(KV2_RX_SO_PATH, RTLD_NOW | RTLD_LOCAL)) {
            l.init = reinterpret_cast<InitFn>(dlsym(so, "AMI_Init"));
            l.getWave = reinterpret_cast<GetWaveFn>(dlsym(so, "AMI_GetWave"));
            l.close = reinterpret_cast<CloseFn>(dlsym(so, "AMI_Close"));
        }
        return l;
    }();
    return library;
}

inline const char kFull[] = "(KV2_RX (SampleRate 1e12) (EQ 5) (SamplesPerBit 32) (Corner \"Typ\"))";

// What AMI_Init says about a parameter it could not read.
inline std::string NotFound(const char* name) {
    return std::string("The IBIS-AMI model, KV2_RX, is unable to initialize the parameter ") + name +
           " from the AMI_Init arguments.  The model will use the default setting. ";
}

struct Instance { long result = -1; void* handle = nullptr; char* msg = nullptr; };

// AMI_Init on a copy of `text` (null passes no text), 1 ps samples, 32 per bit; *msg starts as `sentinel`.
inline Instance Open(const char* text, char* sentinel = nullptr) {
    Instance in{-1, nullptr, sentinel};
    std::string copy = text ? text : "";
    in.result = Ami().init(nullptr, 0, 0, 1e-12, 32e-12, text ? copy.data() : nullptr, nullptr, &in.handle, &in.msg);
    return in;
}

// NRZ levels of +-0.5 at 32 samples per bit, plus uniform noise in [-noise, noise).
inline std::vector<double> Nrz(size_t n, unsigned seed, double noise = 0.0) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> jitter(-noise, noise);
    std::vector<double> wave(n);
    for (size_t i = 0; i < n; ++i) wave[i] = i % 32 ? wave[i - 1] : (rng() & 1) ? 0.5 : -0.5;
    if (noise > 0.0)
        for (double& v : wave) v += jitter(rng);
    return wave;
}

// `wave` after a fresh instance of `text` equalized it in calls of `block` samples.
inline std::vector<double> Equalized(const std::string& text, std::vector<double> wave, size_t block = 1u << 30) {
    const Instance in = Open(text.c_str());
    EXPECT_EQ(in.result, 1) << text;
    double clock = 0.0;
    for (size_t at = 0; at < wave.size(); at += block)
        EXPECT_EQ(Ami().getWave(wave.data() + at, static_cast<long>(std::min(block, wave.size() - at)), &clock, nullptr, in.handle), 1);
    EXPECT_EQ(Ami().close(in.handle), 1) << text;
    return wave;
}

}  // namespace ami_test
