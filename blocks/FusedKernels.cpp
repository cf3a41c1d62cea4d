// FusedKernels: per group of G FIR outputs (G = 64 with AVX-512, 32 with
// AVX2), G recurrence steps each carrying about T / G taps of the group's
// sums. Every output's sum still runs over k = 0 .. T - 1 in order from +0.0.
#include "blocks/FusedKernels.h"

#include "blocks/FirGroups.h"
#include "blocks/FirKernels.h"

namespace TesselModelBuilder {

namespace {

void CascadeOnly(TwoBiquadRecurrence& cascade, const double* x, double* y, size_t begin, size_t n) {
    for (size_t i = begin; i < n; ++i) y[i] = cascade.Step(x[i]);
}

// Makes the FIR's new inputs [0, upTo) available.
class Inputs {
public:
    Inputs(const FirInputProducer* producer, size_t m) : m_pProducer(producer), m_iReady(producer ? 0 : m), m_iM(m) {}
    void Need(size_t upTo) {
        upTo = upTo < m_iM ? upTo : m_iM;
        if (upTo <= m_iReady) return;
        m_pProducer->produce(m_pProducer->context, m_iReady, upTo);
        m_iReady = upTo;
    }

private:
    const FirInputProducer* m_pProducer;
    size_t m_iReady, m_iM;
};

template <int N>
KV2_LANES_INLINE void CascadeWithFirLanes(SimdLevel level, TwoBiquadRecurrence& cascade, const double* x, double* y,
                                          size_t n, const double* taps, size_t T, const double* firIn, double* fir,
                                          size_t m, const FirInputProducer* producer) {
    constexpr size_t G = FirGroup<N>::kOutputs;
    TwoBiquadRecurrence c = cascade;
    size_t i = 0, j = 0;
    Inputs inputs(producer, m);
    inputs.Need(G);
    for (; i + G <= n && j + G <= m; i += G, j += G) {
        inputs.Need(j + 2 * G);  // the next group's, alongside this one
        const double* newest = firIn + (T - 1) + j;
        FirGroup<N> g;
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
    inputs.Need(m);
    if (j < m) FirBlock(level, taps, T, firIn + j, fir + j, m - j);
}

__attribute__((target("avx512f"))) void CascadeWithFirAvx512(
    TwoBiquadRecurrence& cascade, const double* x, double* y, size_t n, const double* taps,
    size_t T, const double* firIn, double* fir, size_t m, const FirInputProducer* producer) {
    CascadeWithFirLanes<8>(SimdLevel::Avx512, cascade, x, y, n, taps, T, firIn, fir, m, producer);
}

__attribute__((target("avx2"))) void CascadeWithFirAvx2(
    TwoBiquadRecurrence& cascade, const double* x, double* y, size_t n, const double* taps,
    size_t T, const double* firIn, double* fir, size_t m, const FirInputProducer* producer) {
    CascadeWithFirLanes<4>(SimdLevel::Avx2, cascade, x, y, n, taps, T, firIn, fir, m, producer);
}

}  // namespace

void CascadeWithFir(SimdLevel level, TwoBiquadRecurrence& cascade, const double* x, double* y,
                    size_t n, const double* firTaps, size_t T, const double* firIn, double* fir,
                    size_t m, const FirInputProducer* producer) {
    switch (level) {
        case SimdLevel::Avx512:
            CascadeWithFirAvx512(cascade, x, y, n, firTaps, T, firIn, fir, m, producer);
            break;
        case SimdLevel::Avx2:
            CascadeWithFirAvx2(cascade, x, y, n, firTaps, T, firIn, fir, m, producer);
            break;
        default:
            CascadeOnly(cascade, x, y, 0, n);
            Inputs(producer, m).Need(m);
            if (m > 0) FirBlock(level, firTaps, T, firIn, fir, m);
            break;
    }
}

}  // namespace TesselModelBuilder
