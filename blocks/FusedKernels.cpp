// FusedKernels: one source, PipelineLanes.inc, compiled for baseline x86-64
// (two lanes of SSE2), AVX2 and AVX-512, each inside its own target region.
#include "blocks/FusedKernels.h"

#include <utility>

#include "blocks/FirGroups.h"

namespace TesselModelBuilder {

namespace {

namespace sse2 {
constexpr int N = 2;
#include "blocks/PipelineLanes.inc"
}  // namespace sse2

#define KV2_LANES_SOURCE "blocks/PipelineLanes.inc"
#include "blocks/LanesForEachTarget.inc"
#undef KV2_LANES_SOURCE

}  // namespace

size_t PipelineGroup(SimdLevel level) {
    switch (level) {
        case SimdLevel::Avx512: return avx512::G;
        case SimdLevel::Avx2: return avx2::G;
        default: return sse2::G;
    }
}

size_t PipelineLanes(SimdLevel level) {
    switch (level) {
        case SimdLevel::Avx512: return avx512::N;
        case SimdLevel::Avx2: return avx2::N;
        default: return sse2::N;
    }
}

void PipelineSteady(SimdLevel level, PairedRecurrence& cascade, const PipelineArrays& a, size_t begin,
                    size_t groups, const double* firTaps, size_t T, const AtRestDelay& delay, size_t warm) {
    switch (level) {
        case SimdLevel::Avx512: avx512::Steady(cascade, a, begin, groups, firTaps, T, delay, warm); break;
        case SimdLevel::Avx2: avx2::Steady(cascade, a, begin, groups, firTaps, T, delay, warm); break;
        default: sse2::Steady(cascade, a, begin, groups, firTaps, T, delay, warm); break;
    }
}

void DelayAtRest(SimdLevel level, const PipelineArrays& a, size_t begin, size_t end, const AtRestDelay& delay) {
    switch (level) {
        case SimdLevel::Avx512: avx512::Delay(a, begin, end, delay); break;
        case SimdLevel::Avx2: avx2::Delay(a, begin, end, delay); break;
        default: sse2::Delay(a, begin, end, delay); break;
    }
}

}  // namespace TesselModelBuilder
