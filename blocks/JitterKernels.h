// JitterKernels: the resampling step of the jitter generator's block form,
// vectorised for the case that dominates in practice: no jitter offset in
// force, so that every output interpolates between the two history entries
// around L samples back.
//
// Each lane is one output sample and performs exactly the scalar operations
// (the same clamp, the same division, the same interpolation), so the bits do
// not depend on the level. Lanes outside that case go to the scalar fallback.
#pragma once

#include <cstddef>
#include <cstdint>

#include "blocks/SimdLevel.h"

namespace TesselModelBuilder {

struct JitterWindow {
    const double* samples;  // flat history: firing i sees entries i + 1 .. i + W
    const double* times;    // their instants, seconds
    const double* jitters;  // their offsets, seconds
    int64_t firstFiring;    // sample count of firing 0
    int latency;            // L >= 1
    int historyLength;      // W = 2L + 1
    double sampleInterval;  // Ts, seconds
};

// The delay block while no jitter offset is in force: output n interpolates
// the samples around n - L at the instant (n - L) Ts, which the pipeline
// computes from the count alone. Outputs left over after the last whole
// vector come from the fallback, which returns output n from its window
// (W = 2L + 1 samples, oldest first).
struct AtRestDelay {
    int latency;            // L >= 1
    double sampleInterval;  // Ts, normal and positive
    // (tau - first) / Ts rounds below L, so that output n interpolates from
    // sample n - L - 1, exactly when tau - first is below this edge.
    double belowEdge;
    double (*fallback)(const void* context, int64_t firing, const double* window);
    const void* context;
};

// times[i] = (double)(first + i) * Ts for i in [0, n): the instants of n
// consecutive samples, each computed exactly as the per-sample path does.
void FillTimes(SimdLevel level, double* times, int64_t first, size_t n, double sampleInterval);

// The first j in [from, n) where x[j - 1] * x[j] < 0 (a strict sign change,
// the test the bit-phase tracking makes), or n; from >= 1.
size_t NextSignChange(SimdLevel level, const double* x, size_t from, size_t n);

// Computes out[i] for i in [0, n); calls fallback(context, i) for every
// firing the vector form does not cover.
void ResampleBlock(SimdLevel level, const JitterWindow& window, double* out, size_t n,
                   void (*fallback)(void* context, size_t i), void* context);

}  // namespace TesselModelBuilder
