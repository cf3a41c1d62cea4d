// FirKernels: scalar, AVX2 and AVX-512 forms of the block FIR sum. Multiplies
// and adds stay separate instructions (no fused multiply-add), and each lane
// carries one output sample from its first tap to its last.
#include "blocks/FirKernels.h"

#include <immintrin.h>

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

// Four accumulators of four lanes: sixteen output samples in flight hide the
// latency of the adds.
__attribute__((target("avx2"))) void FirAvx2(const double* taps, size_t T, const double* x,
                                             double* out, size_t n) {
    size_t i = 0;
    for (; i + 16 <= n; i += 16) {
        const double* newest = x + (T - 1) + i;
        __m256d a0 = _mm256_setzero_pd(), a1 = a0, a2 = a0, a3 = a0;
        for (size_t k = 0; k < T; ++k) {
            const __m256d t = _mm256_broadcast_sd(taps + k);
            const double* p = newest - k;
            a0 = _mm256_add_pd(a0, _mm256_mul_pd(t, _mm256_loadu_pd(p)));
            a1 = _mm256_add_pd(a1, _mm256_mul_pd(t, _mm256_loadu_pd(p + 4)));
            a2 = _mm256_add_pd(a2, _mm256_mul_pd(t, _mm256_loadu_pd(p + 8)));
            a3 = _mm256_add_pd(a3, _mm256_mul_pd(t, _mm256_loadu_pd(p + 12)));
        }
        _mm256_storeu_pd(out + i, a0);
        _mm256_storeu_pd(out + i + 4, a1);
        _mm256_storeu_pd(out + i + 8, a2);
        _mm256_storeu_pd(out + i + 12, a3);
    }
    for (; i + 4 <= n; i += 4) {
        const double* newest = x + (T - 1) + i;
        __m256d a = _mm256_setzero_pd();
        for (size_t k = 0; k < T; ++k)
            a = _mm256_add_pd(a, _mm256_mul_pd(_mm256_broadcast_sd(taps + k), _mm256_loadu_pd(newest - k)));
        _mm256_storeu_pd(out + i, a);
    }
    FirScalar(taps, T, x, out, i, n);
}

// Four accumulators of eight lanes: thirty-two output samples in flight.
__attribute__((target("avx512f"))) void FirAvx512(const double* taps, size_t T, const double* x,
                                                  double* out, size_t n) {
    size_t i = 0;
    for (; i + 32 <= n; i += 32) {
        const double* newest = x + (T - 1) + i;
        __m512d a0 = _mm512_setzero_pd(), a1 = a0, a2 = a0, a3 = a0;
        for (size_t k = 0; k < T; ++k) {
            const __m512d t = _mm512_set1_pd(taps[k]);
            const double* p = newest - k;
            a0 = _mm512_add_pd(a0, _mm512_mul_pd(t, _mm512_loadu_pd(p)));
            a1 = _mm512_add_pd(a1, _mm512_mul_pd(t, _mm512_loadu_pd(p + 8)));
            a2 = _mm512_add_pd(a2, _mm512_mul_pd(t, _mm512_loadu_pd(p + 16)));
            a3 = _mm512_add_pd(a3, _mm512_mul_pd(t, _mm512_loadu_pd(p + 24)));
        }
        _mm512_storeu_pd(out + i, a0);
        _mm512_storeu_pd(out + i + 8, a1);
        _mm512_storeu_pd(out + i + 16, a2);
        _mm512_storeu_pd(out + i + 24, a3);
    }
    for (; i + 8 <= n; i += 8) {
        const double* newest = x + (T - 1) + i;
        __m512d a = _mm512_setzero_pd();
        for (size_t k = 0; k < T; ++k)
            a = _mm512_add_pd(a, _mm512_mul_pd(_mm512_set1_pd(taps[k]), _mm512_loadu_pd(newest - k)));
        _mm512_storeu_pd(out + i, a);
    }
    FirScalar(taps, T, x, out, i, n);
}

}  // namespace

void FirBlock(SimdLevel level, const double* taps, size_t T, const double* x, double* out,
              size_t n) {
    switch (level) {
        case SimdLevel::Avx512: FirAvx512(taps, T, x, out, n); break;
        case SimdLevel::Avx2: FirAvx2(taps, T, x, out, n); break;
        default: FirScalar(taps, T, x, out, 0, n); break;
    }
}

}  // namespace TesselModelBuilder
