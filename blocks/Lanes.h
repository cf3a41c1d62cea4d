// Lanes: N doubles side by side, written once for every instruction set.
//
// The kernels are templates over N and use only loads, stores, broadcasts and
// element-wise + and *. They carry no instruction set of their own; each is instantiated inside a
// small entry function that names one (target("avx2") with N = 4,
// target("avx512f") with N = 8, none with N = 1), and the compiler lowers the
// same lane arithmetic to that set's registers. Every operation is the IEEE
// operation on each lane alone, so N never changes a bit.
#pragma once

#include <cstddef>
#include <cstring>

namespace TesselModelBuilder {

template <int N>
struct Lanes {
    typedef double V __attribute__((vector_size(N * sizeof(double))));
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

}  // namespace TesselModelBuilder
