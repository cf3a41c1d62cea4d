// FirGroups: a group of FIR output samples accumulated side by side, one
// output per vector lane, in eight registers: 64 outputs with AVX-512, 32 with
// AVX2. Each tap adds tap * x to every lane with a separate multiply and add,
// so every lane carries exactly the sequential sum of one output.
#pragma once

#include <immintrin.h>

#include <cstddef>

namespace TesselModelBuilder {

// Each accumulator waits on its own previous add: eight chains keep the
// adders busy where four would wait on latency.
struct FirGroupAvx512 {
    static constexpr size_t kOutputs = 64;
    __m512d a0, a1, a2, a3, a4, a5, a6, a7;
};

struct FirGroupAvx2 {
    static constexpr size_t kOutputs = 32;
    __m256d a0, a1, a2, a3, a4, a5, a6, a7;
};

__attribute__((target("avx512f"))) inline void Clear(FirGroupAvx512& g) {
    g.a0 = g.a1 = g.a2 = g.a3 = g.a4 = g.a5 = g.a6 = g.a7 = _mm512_setzero_pd();
}

// p points at the sample that the group's first output weighs with this tap.
__attribute__((target("avx512f"))) inline void AddTap(FirGroupAvx512& g, double tap, const double* p) {
    const __m512d t = _mm512_set1_pd(tap);
    g.a0 = _mm512_add_pd(g.a0, _mm512_mul_pd(t, _mm512_loadu_pd(p)));
    g.a1 = _mm512_add_pd(g.a1, _mm512_mul_pd(t, _mm512_loadu_pd(p + 8)));
    g.a2 = _mm512_add_pd(g.a2, _mm512_mul_pd(t, _mm512_loadu_pd(p + 16)));
    g.a3 = _mm512_add_pd(g.a3, _mm512_mul_pd(t, _mm512_loadu_pd(p + 24)));
    g.a4 = _mm512_add_pd(g.a4, _mm512_mul_pd(t, _mm512_loadu_pd(p + 32)));
    g.a5 = _mm512_add_pd(g.a5, _mm512_mul_pd(t, _mm512_loadu_pd(p + 40)));
    g.a6 = _mm512_add_pd(g.a6, _mm512_mul_pd(t, _mm512_loadu_pd(p + 48)));
    g.a7 = _mm512_add_pd(g.a7, _mm512_mul_pd(t, _mm512_loadu_pd(p + 56)));
}

__attribute__((target("avx512f"))) inline void Store(const FirGroupAvx512& g, double* out) {
    _mm512_storeu_pd(out, g.a0);
    _mm512_storeu_pd(out + 8, g.a1);
    _mm512_storeu_pd(out + 16, g.a2);
    _mm512_storeu_pd(out + 24, g.a3);
    _mm512_storeu_pd(out + 32, g.a4);
    _mm512_storeu_pd(out + 40, g.a5);
    _mm512_storeu_pd(out + 48, g.a6);
    _mm512_storeu_pd(out + 56, g.a7);
}

__attribute__((target("avx2"))) inline void Clear(FirGroupAvx2& g) {
    g.a0 = g.a1 = g.a2 = g.a3 = g.a4 = g.a5 = g.a6 = g.a7 = _mm256_setzero_pd();
}

__attribute__((target("avx2"))) inline void AddTap(FirGroupAvx2& g, double tap, const double* p) {
    const __m256d t = _mm256_set1_pd(tap);
    g.a0 = _mm256_add_pd(g.a0, _mm256_mul_pd(t, _mm256_loadu_pd(p)));
    g.a1 = _mm256_add_pd(g.a1, _mm256_mul_pd(t, _mm256_loadu_pd(p + 4)));
    g.a2 = _mm256_add_pd(g.a2, _mm256_mul_pd(t, _mm256_loadu_pd(p + 8)));
    g.a3 = _mm256_add_pd(g.a3, _mm256_mul_pd(t, _mm256_loadu_pd(p + 12)));
    g.a4 = _mm256_add_pd(g.a4, _mm256_mul_pd(t, _mm256_loadu_pd(p + 16)));
    g.a5 = _mm256_add_pd(g.a5, _mm256_mul_pd(t, _mm256_loadu_pd(p + 20)));
    g.a6 = _mm256_add_pd(g.a6, _mm256_mul_pd(t, _mm256_loadu_pd(p + 24)));
    g.a7 = _mm256_add_pd(g.a7, _mm256_mul_pd(t, _mm256_loadu_pd(p + 28)));
}

__attribute__((target("avx2"))) inline void Store(const FirGroupAvx2& g, double* out) {
    _mm256_storeu_pd(out, g.a0);
    _mm256_storeu_pd(out + 4, g.a1);
    _mm256_storeu_pd(out + 8, g.a2);
    _mm256_storeu_pd(out + 12, g.a3);
    _mm256_storeu_pd(out + 16, g.a4);
    _mm256_storeu_pd(out + 20, g.a5);
    _mm256_storeu_pd(out + 24, g.a6);
    _mm256_storeu_pd(out + 28, g.a7);
}

}  // namespace TesselModelBuilder
