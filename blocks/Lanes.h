// Lanes: N doubles side by side, written once for every instruction set.
//
// The kernels are templates over N and use only loads, stores, broadcasts and
// element-wise + and * (comparisons and selects must be written inside the
// target's own functions, where the compiler lowers them for it: see
// JitterKernels.cpp). They carry no instruction set of their own; each is instantiated inside a
// small entry function that names one (target("avx2") with N = 4,
// target("avx512f") with N = 8, none with N = 1), and the compiler lowers the
// same lane arithmetic to that set's registers. Every operation is the IEEE
// operation on each lane alone, so N never changes a bit.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace TesselModelBuilder {

template <int N>
struct Lanes {
    typedef double V __attribute__((vector_size(N * sizeof(double))));
    typedef int64_t M __attribute__((vector_size(N * sizeof(int64_t))));  // comparisons: all ones or zero
    static constexpr int kWidth = N;
};

// The entry functions must inline these: without the caller's instruction
// set they would be compiled for the baseline.
#define KV2_LANES_INLINE inline __attribute__((always_inline))

template <int N>
KV2_LANES_INLINE typename Lanes<N>::V Load(const double* p) {
    typename Lanes<N>::V v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

template <int N>
KV2_LANES_INLINE void Store(double* p, typename Lanes<N>::V v) {
    std::memcpy(p, &v, sizeof v);
}

template <int N>
KV2_LANES_INLINE typename Lanes<N>::V Broadcast(double x) {
    return typename Lanes<N>::V{} + x;
}

// Reductions of comparison masks fold the halves together, vector against
// vector, instead of testing lane by lane.
template <int N>
KV2_LANES_INLINE bool Any(typename Lanes<N>::M m) {
    if constexpr (N == 1) {
        return m[0] != 0;
    } else {
        typename Lanes<N / 2>::M lo, hi;
        std::memcpy(&lo, &m, sizeof lo);
        std::memcpy(&hi, reinterpret_cast<const char*>(&m) + sizeof lo, sizeof hi);
        return Any<N / 2>(lo | hi);
    }
}

template <int N>
KV2_LANES_INLINE bool All(typename Lanes<N>::M m) {
    return !Any<N>(~m);
}

// The first lane whose mask is set, or N (after Any has said one is).
template <int N>
KV2_LANES_INLINE int FirstSet(typename Lanes<N>::M m) {
    for (int l = 0; l < N; ++l)
        if (m[l] != 0) return l;
    return N;
}

}  // namespace TesselModelBuilder
