// BiquadCascade: a chain of second-order IIR sections in direct form II that
// filters one input stream and taps the outputs of its last sections.
//
// Section k realises (b0 + b1 z^-1 + b2 z^-2) / (a0 + a1 z^-1 + a2 z^-2)
// (Oppenheim & Schafer, Discrete-Time Signal Processing, direct form II).
#pragma once

#include <cstddef>

#include "dataflow/CircularBuffer.h"
#include "dataflow/CircularBufferBusT.h"
#include "dataflow/DFModel.h"

namespace TesselModelBuilder {

class BiquadCascade : public DFModel {
public:
    double* m_pTaps = nullptr;   // new[]: per biquad b0 b1 b2 a0 a1 a2 (a0 is also called D0)
    int m_iNumTaps = 0;          // length of m_pTaps; a positive multiple of 6
    CircularBuffer<double> input;
    CircularBufferBusT<CircularBuffer<double>> output;  // element 0 = last biquad, 1 = the one before, ...
    double* m_pState1 = nullptr;  // w[n-1] per biquad
    double* m_pState2 = nullptr;  // w[n-2] per biquad
    size_t m_iNumBiquads = 0;     // m_iNumTaps / 6

    BiquadCascade() = default;
    BiquadCascade(const BiquadCascade&) = delete;
    BiquadCascade& operator=(const BiquadCascade&) = delete;
    ~BiquadCascade() override;

    // Checks the taps, divides every biquad by its a0 and restarts from rest.
    bool Initialize() override;
    // One input sample through every biquad; always true.
    bool Run() override;
    bool Finalize() override;

    // n firings at once: in[i] is the input of firing i, out[i] receives what
    // output element 0 would (the last biquad's output). Same operations in
    // the same order as Run, and the same state afterwards, output ports
    // included.
    void RunBlock(const double* in, double* out, size_t n);
};

}  // namespace TesselModelBuilder
