// FirGroups: a group of FIR output samples accumulated side by side, one
// output per lane, in R vectors of N lanes (eight by default: 64 outputs
// with AVX-512 (N = 8), 32 with AVX2 (N = 4), 8 without vectors). Each tap
// adds tap * x to every lane with a separate multiply and add, so every lane
// carries exactly the sequential sum of one output.
#pragma once

#include <cstddef>

#include "blocks/Lanes.h"

namespace TesselModelBuilder {

// Each accumulator waits on its own previous add: eight chains keep the
// adders busy where four would wait on latency.
template <int N, int R = 8>
struct FirGroup {
    static constexpr size_t kOutputs = R * N;
    typename Lanes<N>::V a[R];
};

template <int N, int R>
KV2_LANES_INLINE void Clear(FirGroup<N, R>& g) {
#pragma GCC unroll 8
    for (int r = 0; r < R; ++r) g.a[r] = typename Lanes<N>::V{};
}

// p points at the sample that the group's first output weighs with the tap
// t (in every lane).
template <int N, int R>
KV2_LANES_INLINE void AddTap(FirGroup<N, R>& g, typename Lanes<N>::V t, const double* p) {
#pragma GCC unroll 8
    for (int r = 0; r < R; ++r) g.a[r] = g.a[r] + t * Load<N>(p + r * N);
}

template <int N, int R>
KV2_LANES_INLINE void Store(const FirGroup<N, R>& g, double* out) {
#pragma GCC unroll 8
    for (int r = 0; r < R; ++r) Store<N>(out + r * N, g.a[r]);
}

}  // namespace TesselModelBuilder
