// SDomainIIR: bilinear-transform design of the biquad sections.
#include "blocks/SDomainIIR.h"

#include <cmath>
#include <cstddef>

#include "blocks/CorrectlyRoundedPow.h"
#include "dataflow/DFErrorHandler.h"

namespace TesselModelBuilder {

namespace {

constexpr double kTwoPi = 6.283185307179586;

// The transform's constants, from the sample period.
struct Bilinear {
    double T;  // sample period, seconds
    double A;  // 4 / T^2
    double K;  // 2 / T
};

// Fills one polynomial side (c0 c1 c2 at `offset` in every 6-tap section:
// 0 for the numerator, 3 for the denominator) from section 0 onward: complex
// pairs, then real pairs, then an odd real, then (1 + z^-1) padding.
void FillSide(double* taps, size_t offset, size_t sections, size_t order,
              const Matrix<std::complex<double>>& pairs, const Matrix<double>& reals,
              const Bilinear& d) {
    const bool oddOrder = (order % 2) != 0;
    size_t s = 0;
    auto section = [&](double c0, double c1, double c2) {
        double* t = taps + 6 * s + offset;
        t[0] = c0;
        t[1] = c1;
        t[2] = c2;
        ++s;
    };

    for (size_t i = 0; i < pairs.NumElements(); ++i) {
        const double sigma = pairs.m_pData[i].real();
        const double omega = pairs.m_pData[i].imag();
        const double m = sigma * sigma + omega * omega;
        const double q = (sigma * 4.0) / d.T;
        section((d.A - q) + m, (m - d.A) + (m - d.A), m + (q + d.A));
    }

    const size_t numReals = reals.NumElements();
    const double K = d.K;
    for (size_t i = 0; i + 1 < numReals; i += 2) {
        const double a = reals.m_pData[i];
        const double b = reals.m_pData[i + 1];
        section((K - b) * (K - a), -(K - b) * (a + K) - (K - a) * (b + K), (b + K) * (a + K));
    }
    if (numReals % 2 != 0) {
        const double c = reals.m_pData[numReals - 1];
        if (s == sections - 1 && oddOrder)
            section(K - c, -(K + c), 0.0);
        else
            section(K - c, -2.0 * c, -(K + c));
    }

    while (s < sections) {
        if (oddOrder && s == sections - 1)
            section(1.0, 1.0, 0.0);
        else
            section(1.0, 2.0, 1.0);
    }
}

template <typename T>
void Scale(Matrix<T>& values, double factor) {
    for (size_t i = 0; i < values.NumElements(); ++i) values.m_pData[i] = values.m_pData[i] * factor;
}

void Scale(Matrix<std::complex<double>>& values, double factor) {
    for (size_t i = 0; i < values.NumElements(); ++i) {
        const std::complex<double> v = values.m_pData[i];
        values.m_pData[i] = std::complex<double>(v.real() * factor, v.imag() * factor);
    }
}

}  // namespace

SDomainIIR::SDomainIIR() : m_RealPoles(1, 1), m_ComplexConjugatePoles(1, 2) {
    m_RealPoles.m_pData[0] = -650148.0708064173;
    m_ComplexConjugatePoles.m_pData[0] = {-200906.8027392695, 618327.5592971661};
    m_ComplexConjugatePoles.m_pData[1] = {-525980.8381424781, 382147.44782641466};
    output.Initialize(1);
}

SDomainIIR::~SDomainIIR() = default;

// Design. The analogue filter is
//
//   H(s) = Gain * prod_i (s - z_i) / prod_j (s - p_j),
//
// a real root r giving the factor (s - r) and a complex entry c = sigma + j*omega
// the pair (s - c)(s - conj c) = s^2 - 2 sigma s + m, m = |c|^2. The bilinear
// transform s -> K (1 - z^-1) / (1 + z^-1), K = 2/T, with no pre-warping, maps
//
//   (s - r)           -> ((K - r) - (K + r) z^-1) / (1 + z^-1)
//   (s - c)(s - c*)   -> ((A - q + m) + 2 (m - A) z^-1 + (m + q + A) z^-2) / (1 + z^-1)^2
//
// with A = 4/T^2 = K^2 and q = 4 sigma / T. The (1 + z^-1) denominators are
// collected on the side of lower order: with P poles, Z zeros, M = max(P, Z),
// that side gains M - min(P, Z) roots at z = -1, and the cascade has
// S = ceil(M/2) sections. Each side is filled from section 0 onward:
//   1. one section per complex pair;
//   2. one section per pair of real roots (a, b):
//        (K - b)(K - a) + [-(K - b)(a + K) - (K - a)(b + K)] z^-1 + (b + K)(a + K) z^-2;
//   3. an odd real root c: (K - c) - (K + c) z^-1 when it sits in the last
//      section and M is odd, otherwise times (1 + z^-1):
//        (K - c) - 2c z^-1 - (K + c) z^-2;
//   4. the rest: (1 + z^-1)^2, except (1 + z^-1) for the last section when M is odd.
// Then every section is divided by its a0, each b0 is gathered into the gain g
// (numerators made monic), and g is spread evenly as r = g^(1/S) over the
// sections' numerators. Operand grouping is fixed so that taps are reproducible
// to the bit.
bool SDomainIIR::Initialize() {
    if (!(m_SampleRate > 0)) {
        DFErrorHandler::PostError(this, "SampleRate must be positive.");
        return false;
    }

    if (m_FreqUnit == eHz) {
        Scale(m_RealPoles, kTwoPi);
        Scale(m_ComplexConjugatePoles, kTwoPi);
        Scale(m_RealZeros, kTwoPi);
        Scale(m_ComplexConjugateZeros, kTwoPi);
    }

    const size_t P = m_RealPoles.NumElements() + 2 * m_ComplexConjugatePoles.NumElements();
    const size_t Z = m_RealZeros.NumElements() + 2 * m_ComplexConjugateZeros.NumElements();

    if (P <= Z && Z == 0) {
        // No roots at all: a pure gain.
        delete[] m_pTaps;
        m_pTaps = new double[6]{m_Gain, 0.0, 0.0, 1.0, 0.0, 0.0};
        m_iNumTaps = 6;
        return BiquadCascade::Initialize();
    }

    const size_t M = P <= Z ? Z : P;
    const size_t S = (M + 1) / 2;
    delete[] m_pTaps;
    m_pTaps = nullptr;
    m_pTaps = new double[6 * S];
    m_iNumTaps = static_cast<int>(6 * S);

    Bilinear d;
    d.T = 1.0 / m_SampleRate;
    d.A = 4.0 / (d.T * d.T);
    d.K = 2.0 / d.T;

    FillSide(m_pTaps, 3, S, M, m_ComplexConjugatePoles, m_RealPoles, d);
    FillSide(m_pTaps, 0, S, M, m_ComplexConjugateZeros, m_RealZeros, d);

    for (size_t k = 0; k < S; ++k) NormaliseByA0(m_pTaps + 6 * k);

    double g = m_Gain;
    for (size_t k = 0; k < S; ++k) {
        double* t = m_pTaps + 6 * k;
        const double b0 = t[0];
        g = g * b0;
        t[1] = t[1] / b0;
        t[2] = t[2] / b0;
        t[0] = 1.0;
    }

    // Rounded from the exact power, not by the platform's pow, which differs
    // by CPU and C runtime. A negative g with S > 1 gives NaN taps; left as
    // it is.
    const double r = CorrectlyRoundedPowOneOver(g, S);
    for (size_t k = 0; k < S; ++k) {
        double* t = m_pTaps + 6 * k;
        t[0] = t[0] * r;
        t[1] = t[1] * r;
        t[2] = t[2] * r;
    }

    return BiquadCascade::Initialize();
}

bool SDomainIIR::Finalize() { return true; }

}  // namespace TesselModelBuilder
