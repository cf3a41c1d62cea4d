// FirKernels: the block FIR sum, one source for every instruction set. Multiplies
// and adds stay separate instructions (no fused multiply-add), and each lane
// carries one output sample from its first tap to its last.
#include "blocks/FirKernels.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "blocks/FirGroups.h"

namespace TesselModelBuilder {

namespace {

void FirScalar(const double* taps, size_t T, const double* x, double* out, size_t begin,
               size_t n) {
    for (size_t i = begin; i < n; ++i) {
        const double* newest = x + (T - 1) + i;
        double acc = 0.0;
        for (size_t k = 0; k < T; ++k) acc += taps[k] * newest[-static_cast<ptrdiff_t>(k)];
        out[i] = acc;
    }
}

template <int N, int R = 8>
KV2_LANES_INLINE void FirGroupAt(const double* taps, size_t T, const double* x, double* out, size_t i) {
    const double* newest = x + (T - 1) + i;
    FirGroup<N, R> g;
    Clear(g);
    for (size_t k = 0; k < T; ++k) AddTap(g, Broadcast<N>(taps[k]), newest - k);
    Store(g, out + i);
}

// Fewer outputs than a group: their R whole vectors as one group (R fixed at
// compile time), and the last few once more by overlap.
template <int N, int R = FirGroup<N>::kOutputs / N - 1>
KV2_LANES_INLINE void FirFewerThanAGroup(const double* taps, size_t T, const double* x, double* out, size_t n) {
    if constexpr (R > 1) {
        if (n < R * N) return FirFewerThanAGroup<N, R - 1>(taps, T, x, out, n);
    }
    FirGroupAt<N, R>(taps, T, x, out, 0);
    if (n > R * N) FirGroupAt<N, 1>(taps, T, x, out, n - N);
}

// Whole groups of outputs (enough sums in flight to hide the latency of the
// adds). A remainder is one more group ending at n, over outputs already
// written: each lane is the same sequential sum, so they get the same bits,
// and one group costs less than the remainder's sums one chain at a time.
template <int N>
KV2_LANES_INLINE void FirLanes(const double* taps, size_t T, const double* x, double* out, size_t n) {
    constexpr size_t kGroup = FirGroup<N>::kOutputs;
    if (n >= kGroup) {
        size_t i = 0;
        for (; i + kGroup <= n; i += kGroup) FirGroupAt<N>(taps, T, x, out, i);
        if (i < n) FirGroupAt<N>(taps, T, x, out, n - kGroup);
    } else if (n >= N) {
        FirFewerThanAGroup<N>(taps, T, x, out, n);
    } else {
        FirScalar(taps, T, x, out, 0, n);
    }
}

__attribute__((target("avx2"))) void FirAvx2(const double* taps, size_t T, const double* x, double* out, size_t n) {
    FirLanes<4>(taps, T, x, out, n);
}

__attribute__((target(KV2_EIGHT_LANE_TARGET))) void FirAvx512(const double* taps, size_t T, const double* x,
                                                              double* out, size_t n) {
    FirLanes<8>(taps, T, x, out, n);
}

void FirDispatch(SimdLevel level, const double* taps, size_t T, const double* x, double* out,
                 size_t n) {
    switch (level) {
        case SimdLevel::Avx512: FirAvx512(taps, T, x, out, n); break;
        case SimdLevel::Avx2: FirAvx2(taps, T, x, out, n); break;
        // Baseline x86-64 has SSE2: two lanes, each still one sequential sum.
        default: FirLanes<2>(taps, T, x, out, n); break;
    }
}

}  // namespace

size_t TrailingRun(const double* x, size_t total) {
    uint64_t last;
    std::memcpy(&last, &x[total - 1], sizeof last);
    size_t r = total - 1;
    while (r > 0) {
        uint64_t bits;
        std::memcpy(&bits, &x[r - 1], sizeof bits);
        if (bits != last) break;
        --r;
    }
    return r;
}

// Start of the trailing run of zeros of either sign in x[0..total).
size_t TrailingZeros(const double* x, size_t total) {
    size_t r = total;
    while (r > 0 && x[r - 1] == 0.0) --r;
    return r;
}

// Outputs whose whole window holds one repeated value (a settled tail) are
// the same sum over the same operands: the first of them is computed, the
// others copy it. A window of zeros, whatever their signs, sums to +0.0 as
// long as the taps are finite: every product is a zero and the sum starts
// from +0.0, which adding a zero of either sign leaves as it is.
void FirBlock(SimdLevel level, const double* taps, size_t T, const double* x, double* out,
              size_t n) {
    if (n == 0) return;
    const size_t total = T - 1 + n;  // output i reads x[i .. i + T - 1]
    if (x[total - 1] == 0.0 && std::all_of(taps, taps + T, [](double t) { return std::isfinite(t); })) {
        const size_t run = TrailingZeros(x, total);
        const size_t computed = std::min(run, n);
        FirDispatch(level, taps, T, x, out, computed);
        std::fill(out + computed, out + n, 0.0);
        return;
    }
    const size_t run = TrailingRun(x, total);
    const size_t computed = run < n ? run + 1 : n;
    FirDispatch(level, taps, T, x, out, computed);
    for (size_t i = computed; i < n; ++i) out[i] = out[run];
}

}  // namespace TesselModelBuilder
