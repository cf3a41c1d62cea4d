// AmiSession: one simulator session (AMI_Init, a run of AMI_GetWave calls,
// AMI_Close) decoded from a byte string. The lifecycle fuzz harness drives
// the linked-in entry points with it; the regression replay drives the
// loaded library the same way, so a saved input replays exactly.
//
// Input layout: the parameter text up to the first NUL byte, then an
// optional control tail:
//   byte 0   flags: bit 0 take sample_interval and bit_time from the tail,
//            bit 1 samples are raw doubles (else int16 / 32768),
//            bit 2 pass a null clock_times
//   byte 1   block length of the AMI_GetWave calls: 1 + 4 * byte
//   16 bytes sample_interval, bit_time (raw doubles; only with bit 0)
//   rest     the waveform
// Without a tail (a plain parameter text, as the seed corpus holds) the
// session runs a fixed square wave with the usual timing.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace kv2_fuzz {

using AmiInitFn = long (*)(double*, long, long, double, double, char*, char**, void**, char**);
using AmiGetWaveFn = long (*)(double*, long, double*, char**, void*);
using AmiCloseFn = long (*)(void*);

struct AmiEntryPoints {
    AmiInitFn init;
    AmiGetWaveFn getWave;
    AmiCloseFn close;
};

struct SessionInput {
    std::string sParameters;
    double dSampleInterval = 1e-12;  // seconds
    double dBitTime = 32e-12;        // seconds
    bool bNullClockTimes = false;
    size_t nBlock = 100;             // samples per AMI_GetWave call
    std::vector<double> vWave;
};

struct SessionOutcome {
    long nInit = -1;
    std::vector<long> vGetWave;  // one result per call
    long nClose = -1;
    std::vector<double> vWave;   // the waveform after the session
    std::string sMessage;        // what AMI_Init handed out ("" when nothing)
};

// Stops the process with a message: a broken session contract is a finding.
[[noreturn]] inline void SessionFailure(const char* what) {
    fprintf(stderr, "session check failed: %s\n", what);
    abort();
}

inline SessionInput DecodeSession(const uint8_t* data, size_t size) {
    SessionInput in;
    const uint8_t* nul = static_cast<const uint8_t*>(memchr(data, 0, size));
    const size_t textLength = nul != nullptr ? static_cast<size_t>(nul - data) : size;
    in.sParameters.assign(reinterpret_cast<const char*>(data), textLength);
    if (nul == nullptr || size - textLength < 3) {
        in.vWave.resize(600);
        for (size_t i = 0; i < in.vWave.size(); ++i) in.vWave[i] = (i / 64) % 2 == 0 ? 0.5 : -0.5;
        return in;
    }
    const uint8_t* tail = nul + 1;
    size_t left = size - textLength - 1;
    const uint8_t flags = tail[0];
    in.nBlock = 1 + 4 * static_cast<size_t>(tail[1]);
    tail += 2;
    left -= 2;
    in.bNullClockTimes = (flags & 4) != 0;
    if ((flags & 1) != 0 && left >= 16) {
        memcpy(&in.dSampleInterval, tail, 8);
        memcpy(&in.dBitTime, tail + 8, 8);
        tail += 16;
        left -= 16;
    }
    if ((flags & 2) != 0) {
        in.vWave.resize(left / 8);
        for (size_t i = 0; i < in.vWave.size(); ++i) memcpy(&in.vWave[i], tail + 8 * i, 8);
    } else {
        in.vWave.resize(left / 2);
        for (size_t i = 0; i < in.vWave.size(); ++i) {
            const int16_t v = static_cast<int16_t>(tail[2 * i] | (tail[2 * i + 1] << 8));
            in.vWave[i] = v / 32768.0;
        }
    }
    return in;
}

// Runs the session and checks what every host may rely on: a handle is
// always stored, results are 0 or 1, the message is a terminated string,
// the impulse response and clock slots past the first stay untouched.
inline SessionOutcome RunSession(const AmiEntryPoints& ami, const SessionInput& in) {
    SessionOutcome out;
    std::vector<char> parameters(in.sParameters.begin(), in.sParameters.end());
    parameters.push_back('\0');
    double impulse[16];
    for (int i = 0; i < 16; ++i) impulse[i] = 0.125 * i;
    char sentinel[] = "sentinel";
    char* msg = sentinel;
    void* handle = nullptr;
    out.nInit = ami.init(impulse, 16, 0, in.dSampleInterval, in.dBitTime, parameters.data(), nullptr,
                         &handle, &msg);
    if (out.nInit != 0 && out.nInit != 1) SessionFailure("AMI_Init result");
    if (handle == nullptr) SessionFailure("AMI_Init stored no handle");
    if (msg == nullptr) SessionFailure("AMI_Init set msg to null");
    if (msg != sentinel) out.sMessage = msg;
    for (int i = 0; i < 16; ++i)
        if (impulse[i] != 0.125 * i) SessionFailure("AMI_Init changed the impulse response");

    out.vWave = in.vWave;
    std::vector<double> clocks(in.nBlock + 2, 7.0);
    for (size_t at = 0; at <= out.vWave.size(); at += in.nBlock) {
        // The last pass is the empty call at the end of the waveform.
        const size_t n = at == out.vWave.size() ? 0 : std::min(in.nBlock, out.vWave.size() - at);
        double* clockSlots = in.bNullClockTimes ? nullptr : clocks.data();
        const long r = ami.getWave(out.vWave.data() + at, static_cast<long>(n), clockSlots, nullptr, handle);
        if (r != 0 && r != 1) SessionFailure("AMI_GetWave result");
        out.vGetWave.push_back(r);
        for (size_t i = 1; i < clocks.size(); ++i)
            if (clocks[i] != 7.0) SessionFailure("AMI_GetWave wrote past the first clock slot");
        if (n == 0) break;
    }
    out.nClose = ami.close(handle);
    if (out.nClose != 0 && out.nClose != 1) SessionFailure("AMI_Close result");
    return out;
}

// Bit-for-bit equality of two sessions' results (NaN payloads included).
inline bool SameOutcome(const SessionOutcome& a, const SessionOutcome& b) {
    return a.nInit == b.nInit && a.vGetWave == b.vGetWave && a.nClose == b.nClose &&
           a.sMessage == b.sMessage && a.vWave.size() == b.vWave.size() &&
           (a.vWave.empty() || memcmp(a.vWave.data(), b.vWave.data(), a.vWave.size() * sizeof(double)) == 0);
}

}  // namespace kv2_fuzz
