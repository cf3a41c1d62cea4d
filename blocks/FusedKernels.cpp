// FusedKernels: per group of G FIR outputs (G = 64 with AVX-512, 16 with
// AVX2), G recurrence steps each carrying about T / G taps of the group's
// sums. Every output's sum still runs over k = 0 .. T - 1 in order from +0.0.
#include "blocks/FusedKernels.h"

#include <immintrin.h>

#include "blocks/FirGroups.h"
#include "blocks/FirKernels.h"

namespace TesselModelBuilder {

namespace {

void CascadeOnly(TwoBiquadRecurrence& cascade, const double* x, double* y, size_t begin, size_t n) {
    for (size_t i = begin; i < n; ++i) y[i] = cascade.Step(x[i]);
}

// The group loop is written out per instruction set (not shared through a
// template) so that the vector helpers inline into it.
__attribute__((target("avx512f"))) void CascadeWithFirAvx512(
    TwoBiquadRecurrence& cascade, const double* x, double* y, size_t n, const double* taps,
    size_t T, const double* firIn, double* fir, size_t m) {
    constexpr size_t G = FirGroupAvx512Wide::kOutputs;
    TwoBiquadRecurrence c = cascade;
    size_t i = 0, j = 0;
    for (; i + G <= n && j + G <= m; i += G, j += G) {
        const double* newest = firIn + (T - 1) + j;
        FirGroupAvx512Wide g;
        Clear(g);
        size_t k = 0;
        for (size_t r = 0; r < G; ++r) {
            y[i + r] = c.Step(x[i + r]);
            for (const size_t kEnd = (r + 1) * T / G; k < kEnd; ++k) AddTap(g, taps[k], newest - k);
        }
        Store(g, fir + j);
    }
    CascadeOnly(c, x, y, i, n);
    cascade = c;
    if (j < m) FirBlock(SimdLevel::Avx512, taps, T, firIn + j, fir + j, m - j);
}

__attribute__((target("avx2"))) void CascadeWithFirAvx2(
    TwoBiquadRecurrence& cascade, const double* x, double* y, size_t n, const double* taps,
    size_t T, const double* firIn, double* fir, size_t m) {
    constexpr size_t G = FirGroupAvx2Wide::kOutputs;
    TwoBiquadRecurrence c = cascade;
    size_t i = 0, j = 0;
    for (; i + G <= n && j + G <= m; i += G, j += G) {
        const double* newest = firIn + (T - 1) + j;
        FirGroupAvx2Wide g;
        Clear(g);
        size_t k = 0;
        for (size_t r = 0; r < G; ++r) {
            y[i + r] = c.Step(x[i + r]);
            for (const size_t kEnd = (r + 1) * T / G; k < kEnd; ++k) AddTap(g, taps[k], newest - k);
        }
        Store(g, fir + j);
    }
    CascadeOnly(c, x, y, i, n);
    cascade = c;
    if (j < m) FirBlock(SimdLevel::Avx2, taps, T, firIn + j, fir + j, m - j);
}

}  // namespace

void CascadeWithFir(SimdLevel level, TwoBiquadRecurrence& cascade, const double* x, double* y,
                    size_t n, const double* firTaps, size_t T, const double* firIn, double* fir,
                    size_t m) {
    switch (level) {
        case SimdLevel::Avx512:
            CascadeWithFirAvx512(cascade, x, y, n, firTaps, T, firIn, fir, m);
            break;
        case SimdLevel::Avx2:
            CascadeWithFirAvx2(cascade, x, y, n, firTaps, T, firIn, fir, m);
            break;
        default:
            CascadeOnly(cascade, x, y, 0, n);
            if (m > 0) FirBlock(level, firTaps, T, firIn, fir, m);
            break;
    }
}

}  // namespace TesselModelBuilder
