// JitterKernels: AVX2 and AVX-512 forms of the zero-offset resampling step.
//
// Per lane, with d = i + 1 + (W - 1 - L) the entry L samples back:
//   tau = J[d] + (n - L) Ts, clamped: min(last, max(first, tau))
//   k   = trunc((tau - first) / Ts), covered when it is L - 1 or L
//   y   = ((tau - t[k]) (s[k+1] - s[k])) / (t[k+1] - t[k]) + s[k]
// std::max(first, tau) is what MAXPD(tau, first) returns and std::min(last, x)
// what MINPD(x, last) returns, NaNs and signed zeros included.
#include "blocks/JitterKernels.h"

#include <immintrin.h>

// GCC 12's max/min intrinsics start from an undefined register and warn about
// it; the value is never used.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"

namespace TesselModelBuilder {

namespace {

// Sample counts stay far below 2^53, so counting in doubles is exact and
// (double)first + i equals (double)(first + i).
void FillTimesScalar(double* times, int64_t first, size_t begin, size_t n, double ts) {
    for (size_t i = begin; i < n; ++i) times[i] = static_cast<double>(first + static_cast<int64_t>(i)) * ts;
}

__attribute__((target("avx2"))) void FillTimesAvx2(double* times, int64_t first, size_t n, double ts) {
    const __m256d step = _mm256_set1_pd(4.0), t = _mm256_set1_pd(ts);
    __m256d count = _mm256_add_pd(_mm256_set1_pd(static_cast<double>(first)), _mm256_setr_pd(0, 1, 2, 3));
    size_t i = 0;
    for (; i + 4 <= n; i += 4, count = _mm256_add_pd(count, step)) _mm256_storeu_pd(times + i, _mm256_mul_pd(count, t));
    FillTimesScalar(times, first, i, n, ts);
}

__attribute__((target("avx512f"))) void FillTimesAvx512(double* times, int64_t first, size_t n, double ts) {
    const __m512d step = _mm512_set1_pd(8.0), t = _mm512_set1_pd(ts);
    __m512d count =
        _mm512_add_pd(_mm512_set1_pd(static_cast<double>(first)), _mm512_setr_pd(0, 1, 2, 3, 4, 5, 6, 7));
    size_t i = 0;
    for (; i + 8 <= n; i += 8, count = _mm512_add_pd(count, step)) _mm512_storeu_pd(times + i, _mm512_mul_pd(count, t));
    FillTimesScalar(times, first, i, n, ts);
}

void ResampleScalar(size_t begin, size_t n, void (*fallback)(void*, size_t), void* context) {
    for (size_t i = begin; i < n; ++i) fallback(context, i);
}

__attribute__((target("avx2"))) void ResampleAvx2(const JitterWindow& w, double* out, size_t n,
                                                  void (*fallback)(void*, size_t), void* context) {
    const int L = w.latency, W = w.historyLength;
    const __m256d ts = _mm256_set1_pd(w.sampleInterval);
    const __m256d lower = _mm256_set1_pd(L - 1), middle = _mm256_set1_pd(L), upper = _mm256_set1_pd(L + 1);
    const __m256d lanes = _mm256_setr_pd(0.0, 1.0, 2.0, 3.0);
    size_t i = 0;
    for (; i + 4 <= n; i += 4) {
        const size_t start = i + 1;  // window of lane 0
        const __m256d J = _mm256_loadu_pd(w.jitters + start + (W - 1 - L));
        const __m256d first = _mm256_loadu_pd(w.times + start);
        const __m256d last = _mm256_loadu_pd(w.times + start + (W - 1));
        // (double)(n - L) for each lane: exact, the counts stay far below 2^53.
        const __m256d count = _mm256_add_pd(
            _mm256_set1_pd(static_cast<double>(w.firstFiring + static_cast<int64_t>(i) - L)), lanes);
        __m256d tau = _mm256_add_pd(J, _mm256_mul_pd(count, ts));
        tau = _mm256_min_pd(_mm256_max_pd(tau, first), last);
        const __m256d position = _mm256_div_pd(_mm256_sub_pd(tau, first), ts);
        const __m256d zero = _mm256_cmp_pd(J, _mm256_setzero_pd(), _CMP_EQ_OQ);
        const __m256d below = _mm256_and_pd(_mm256_cmp_pd(position, lower, _CMP_GE_OQ),
                                            _mm256_cmp_pd(position, middle, _CMP_LT_OQ));
        const __m256d above = _mm256_and_pd(_mm256_cmp_pd(position, middle, _CMP_GE_OQ),
                                            _mm256_cmp_pd(position, upper, _CMP_LT_OQ));
        if (_mm256_movemask_pd(_mm256_and_pd(zero, _mm256_or_pd(below, above))) != 0xF) {
            ResampleScalar(i, i + 4, fallback, context);
            continue;
        }
        const double* s = w.samples + start + (L - 1);
        const double* t = w.times + start + (L - 1);
        const __m256d s0 = _mm256_blendv_pd(_mm256_loadu_pd(s + 1), _mm256_loadu_pd(s), below);
        const __m256d s1 = _mm256_blendv_pd(_mm256_loadu_pd(s + 2), _mm256_loadu_pd(s + 1), below);
        const __m256d t0 = _mm256_blendv_pd(_mm256_loadu_pd(t + 1), _mm256_loadu_pd(t), below);
        const __m256d t1 = _mm256_blendv_pd(_mm256_loadu_pd(t + 2), _mm256_loadu_pd(t + 1), below);
        const __m256d y = _mm256_add_pd(
            _mm256_div_pd(_mm256_mul_pd(_mm256_sub_pd(tau, t0), _mm256_sub_pd(s1, s0)), _mm256_sub_pd(t1, t0)),
            s0);
        _mm256_storeu_pd(out + i, y);
    }
    ResampleScalar(i, n, fallback, context);
}

__attribute__((target("avx512f"))) void ResampleAvx512(const JitterWindow& w, double* out, size_t n,
                                                       void (*fallback)(void*, size_t), void* context) {
    const int L = w.latency, W = w.historyLength;
    const __m512d ts = _mm512_set1_pd(w.sampleInterval);
    const __m512d lower = _mm512_set1_pd(L - 1), middle = _mm512_set1_pd(L), upper = _mm512_set1_pd(L + 1);
    const __m512d lanes = _mm512_setr_pd(0.0, 1.0, 2.0, 3.0, 4.0, 5.0, 6.0, 7.0);
    size_t i = 0;
    for (; i + 8 <= n; i += 8) {
        const size_t start = i + 1;
        const __m512d J = _mm512_loadu_pd(w.jitters + start + (W - 1 - L));
        const __m512d first = _mm512_loadu_pd(w.times + start);
        const __m512d last = _mm512_loadu_pd(w.times + start + (W - 1));
        const __m512d count = _mm512_add_pd(
            _mm512_set1_pd(static_cast<double>(w.firstFiring + static_cast<int64_t>(i) - L)), lanes);
        __m512d tau = _mm512_add_pd(J, _mm512_mul_pd(count, ts));
        tau = _mm512_min_pd(_mm512_max_pd(tau, first), last);
        const __m512d position = _mm512_div_pd(_mm512_sub_pd(tau, first), ts);
        const __mmask8 zero = _mm512_cmp_pd_mask(J, _mm512_setzero_pd(), _CMP_EQ_OQ);
        const __mmask8 below = _mm512_cmp_pd_mask(position, lower, _CMP_GE_OQ) &
                               _mm512_cmp_pd_mask(position, middle, _CMP_LT_OQ);
        const __mmask8 above = _mm512_cmp_pd_mask(position, middle, _CMP_GE_OQ) &
                               _mm512_cmp_pd_mask(position, upper, _CMP_LT_OQ);
        if (static_cast<__mmask8>(zero & (below | above)) != 0xFF) {
            ResampleScalar(i, i + 8, fallback, context);
            continue;
        }
        const double* s = w.samples + start + (L - 1);
        const double* t = w.times + start + (L - 1);
        const __m512d s0 = _mm512_mask_blend_pd(below, _mm512_loadu_pd(s + 1), _mm512_loadu_pd(s));
        const __m512d s1 = _mm512_mask_blend_pd(below, _mm512_loadu_pd(s + 2), _mm512_loadu_pd(s + 1));
        const __m512d t0 = _mm512_mask_blend_pd(below, _mm512_loadu_pd(t + 1), _mm512_loadu_pd(t));
        const __m512d t1 = _mm512_mask_blend_pd(below, _mm512_loadu_pd(t + 2), _mm512_loadu_pd(t + 1));
        const __m512d y = _mm512_add_pd(
            _mm512_div_pd(_mm512_mul_pd(_mm512_sub_pd(tau, t0), _mm512_sub_pd(s1, s0)), _mm512_sub_pd(t1, t0)),
            s0);
        _mm512_storeu_pd(out + i, y);
    }
    ResampleScalar(i, n, fallback, context);
}

size_t NextSignChangeScalar(const double* x, size_t j, size_t n) {
    while (j < n && !(x[j - 1] * x[j] < 0.0)) ++j;
    return j;
}

__attribute__((target("avx2"))) size_t NextSignChangeAvx2(const double* x, size_t j, size_t n) {
    const __m256d zero = _mm256_setzero_pd();
    for (; j + 4 <= n; j += 4) {
        const __m256d product = _mm256_mul_pd(_mm256_loadu_pd(x + j - 1), _mm256_loadu_pd(x + j));
        const int lanes = _mm256_movemask_pd(_mm256_cmp_pd(product, zero, _CMP_LT_OQ));
        if (lanes != 0) return j + static_cast<size_t>(__builtin_ctz(static_cast<unsigned>(lanes)));
    }
    return NextSignChangeScalar(x, j, n);
}

__attribute__((target("avx512f"))) size_t NextSignChangeAvx512(const double* x, size_t j, size_t n) {
    const __m512d zero = _mm512_setzero_pd();
    for (; j + 8 <= n; j += 8) {
        const __m512d product = _mm512_mul_pd(_mm512_loadu_pd(x + j - 1), _mm512_loadu_pd(x + j));
        const unsigned lanes = _mm512_cmp_pd_mask(product, zero, _CMP_LT_OQ);
        if (lanes != 0) return j + static_cast<size_t>(__builtin_ctz(lanes));
    }
    return NextSignChangeScalar(x, j, n);
}

}  // namespace

size_t NextSignChange(SimdLevel level, const double* x, size_t from, size_t n) {
    switch (level) {
        case SimdLevel::Avx512: return NextSignChangeAvx512(x, from, n);
        case SimdLevel::Avx2: return NextSignChangeAvx2(x, from, n);
        default: return NextSignChangeScalar(x, from, n);
    }
}

void FillTimes(SimdLevel level, double* times, int64_t first, size_t n, double sampleInterval) {
    switch (level) {
        case SimdLevel::Avx512: FillTimesAvx512(times, first, n, sampleInterval); break;
        case SimdLevel::Avx2: FillTimesAvx2(times, first, n, sampleInterval); break;
        default: FillTimesScalar(times, first, 0, n, sampleInterval); break;
    }
}

void ResampleBlock(SimdLevel level, const JitterWindow& window, double* out, size_t n,
                   void (*fallback)(void* context, size_t i), void* context) {
    if (window.latency < 1) level = SimdLevel::Scalar;
    switch (level) {
        case SimdLevel::Avx512: ResampleAvx512(window, out, n, fallback, context); break;
        case SimdLevel::Avx2: ResampleAvx2(window, out, n, fallback, context); break;
        default: ResampleScalar(0, n, fallback, context); break;
    }
}

}  // namespace TesselModelBuilder
