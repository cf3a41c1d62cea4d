// JitterKernels: the zero-offset resampling step, the sample instants and
// the sign-change search: one source, JitterLanes.inc, compiled here once for
// AVX2 and once for AVX-512, each inside its own target region (comparisons
// and selects of lane vectors are lowered for the target of the function
// that writes them, so they must be written inside the region).
#include "blocks/JitterKernels.h"

#include "blocks/Lanes.h"

namespace TesselModelBuilder {

namespace {

// Sample counts stay far below 2^53, so counting in doubles is exact and
// (double)first + i equals (double)(first + i).
void FillTimesScalar(double* times, int64_t first, size_t begin, size_t n, double ts) {
    for (size_t i = begin; i < n; ++i) times[i] = static_cast<double>(first + static_cast<int64_t>(i)) * ts;
}

void ResampleScalar(size_t begin, size_t n, void (*fallback)(void*, size_t), void* context) {
    for (size_t i = begin; i < n; ++i) fallback(context, i);
}

size_t NextSignChangeScalar(const double* x, size_t j, size_t n) {
    while (j < n && !(x[j - 1] * x[j] < 0.0)) ++j;
    return j;
}

#define KV2_LANES_SOURCE "blocks/JitterLanes.inc"
#include "blocks/LanesForEachTarget.inc"
#undef KV2_LANES_SOURCE

}  // namespace

size_t NextSignChange(SimdLevel level, const double* x, size_t from, size_t n) {
    switch (level) {
        case SimdLevel::Avx512: return avx512::NextSignChange(x, from, n);
        case SimdLevel::Avx2: return avx2::NextSignChange(x, from, n);
        default: return NextSignChangeScalar(x, from, n);
    }
}

void FillTimes(SimdLevel level, double* times, int64_t first, size_t n, double sampleInterval) {
    switch (level) {
        case SimdLevel::Avx512: avx512::FillTimes(times, first, n, sampleInterval); break;
        case SimdLevel::Avx2: avx2::FillTimes(times, first, n, sampleInterval); break;
        default: FillTimesScalar(times, first, 0, n, sampleInterval); break;
    }
}

void ResampleBlock(SimdLevel level, const JitterWindow& window, double* out, size_t n,
                   void (*fallback)(void* context, size_t i), void* context) {
    if (window.latency < 1) level = SimdLevel::Scalar;
    switch (level) {
        case SimdLevel::Avx512: avx512::Resample(window, out, n, fallback, context); break;
        case SimdLevel::Avx2: avx2::Resample(window, out, n, fallback, context); break;
        default: ResampleScalar(0, n, fallback, context); break;
    }
}

}  // namespace TesselModelBuilder
