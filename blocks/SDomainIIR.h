// SDomainIIR: an analogue transfer function, given by its leading gain and its
// poles and zeros, realised as a biquad cascade by the bilinear transform
// without frequency pre-warping (Oppenheim & Schafer, Discrete-Time Signal
// Processing, section 7.1.2).
#pragma once

#include <complex>
#include <cstdint>

#include "blocks/BiquadCascade.h"
#include "dataflow/Matrix.h"

namespace TesselModelBuilder {

class SDomainIIR : public BiquadCascade {
public:
    enum FreqUnitE : int32_t { eRad = 0, eHz = 1 };

    double m_SampleRate = 1e6;                 // samples per second
    double m_Gain = 1.1616128054708951e29;     // leading coefficient of H(s), not the DC gain
    Matrix<double> m_RealPoles;                // 1xN, in m_FreqUnit
    Matrix<std::complex<double>> m_ComplexConjugatePoles;  // 1xN, one entry per conjugate pair
    Matrix<double> m_RealZeros;                // 1xN, in m_FreqUnit
    Matrix<std::complex<double>> m_ComplexConjugateZeros;  // 1xN, one entry per conjugate pair
    FreqUnitE m_FreqUnit = eRad;               // eHz values are turned into rad/s in place

    // Defaults: a fifth-order Butterworth low-pass at 650148.07 rad/s with
    // unity DC gain, one output.
    SDomainIIR();
    ~SDomainIIR() override;

    // Designs the sections into the cascade's taps, then initialises the cascade.
    bool Initialize() override;
    bool Finalize() override;
};

}  // namespace TesselModelBuilder
