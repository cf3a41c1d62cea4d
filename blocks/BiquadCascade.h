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

// The common two-section cascade with its state in registers: the operations
// of BiquadCascade::Run for two biquads, shared by every block form of it.
// This recurrence is the critical path of the whole receiver.
struct TwoBiquadRecurrence {
    double b0, b1, b2, a1, a2;  // section 0 (a0 = 1)
    double d0, d1, d2, c1, c2;  // section 1 (a0 = 1)
    double w1, w2;              // section 0: w[n-1], w[n-2]
    double v1, v2;              // section 1: w[n-1], w[n-2]
    double y = 0.0;             // section 0's latest output

    TwoBiquadRecurrence(const double* taps, const double* state1, const double* state2)
        : b0(taps[0]), b1(taps[1]), b2(taps[2]), a1(taps[4]), a2(taps[5]),
          d0(taps[6]), d1(taps[7]), d2(taps[8]), c1(taps[10]), c2(taps[11]),
          w1(state1[0]), w2(state2[0]), v1(state1[1]), v2(state2[1]) {}

    // One input sample through both sections; returns the second's output.
    double Step(double x) { return Section1(Section0(x)); }

    double Section0(double x) {
        const double w = (x - a1 * w1) - a2 * w2;
        y = (b1 * w1 + b0 * w) + b2 * w2;
        w2 = w1;
        w1 = w;
        return y;
    }

    double Section1(double in) {
        const double v = (in - c1 * v1) - c2 * v2;
        const double z = (d1 * v1 + d0 * v) + d2 * v2;
        v2 = v1;
        v1 = v;
        return z;
    }

    void Store(double* state1, double* state2) const {
        state1[0] = w1;
        state2[0] = w2;
        state1[1] = v1;
        state2[1] = v2;
    }
};

// The same recurrence with both sections side by side in the two lanes of a
// vector, the second two samples behind the first: one vector step does the
// work of two scalar sections, with the same operations in every lane. (Two
// samples, not one: with one the second lane would wait on the first's output
// of the step before and add its latency to every step.) Built from a
// cascade and the next two inputs, which go through the first section alone;
// Finish puts the last two samples through the second and hands the cascade
// back.
struct PairedRecurrence {
    typedef double V2 __attribute__((vector_size(2 * sizeof(double))));
    V2 a1, a2, b0, b1, b2;  // section 0's coefficient in lane 0, section 1's in lane 1
    V2 u1, u2;              // {w[n-1], v[n-3]}, {w[n-2], v[n-4]} before the step for sample n
    double y1, y2;          // section 0's outputs y[n-1], y[n-2]

    PairedRecurrence(TwoBiquadRecurrence c, const double* x)
        : a1{c.a1, c.c1}, a2{c.a2, c.c2}, b0{c.b0, c.d0}, b1{c.b1, c.d1}, b2{c.b2, c.d2}, m_cCoefficients(c) {
        y2 = c.Section0(x[0]);
        y1 = c.Section0(x[1]);
        u1 = V2{c.w1, c.v1};
        u2 = V2{c.w2, c.v2};
    }

    // Sample n into the first section; returns the second's output for n - 2.
    double Step(double x) {
        const V2 u = (V2{x, y2} - a1 * u1) - a2 * u2;
        const V2 out = (b1 * u1 + b0 * u) + b2 * u2;
        u2 = u1;
        u1 = u;
        y2 = y1;
        y1 = out[0];
        return out[1];
    }

    // The second section's outputs for the two samples still pending, into
    // out[0] and out[1]; returns the cascade after them.
    TwoBiquadRecurrence Finish(double* out) const {
        TwoBiquadRecurrence c = m_cCoefficients;
        c.w1 = u1[0], c.w2 = u2[0], c.v1 = u1[1], c.v2 = u2[1], c.y = y1;
        out[0] = c.Section1(y2);
        out[1] = c.Section1(y1);
        return c;
    }

private:
    TwoBiquadRecurrence m_cCoefficients;
};

// Divides a section's b0, b1, b2, a1, a2 (taps[0..5] = b0 b1 b2 a0 a1 a2) by
// its a0 and sets a0 to 1.
inline void NormaliseByA0(double* taps) {
    const double a0 = taps[3];
    taps[0] = taps[0] / a0;
    taps[1] = taps[1] / a0;
    taps[2] = taps[2] / a0;
    taps[4] = taps[4] / a0;
    taps[5] = taps[5] / a0;
    taps[3] = 1.0;
}

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

    // True when the cascade is initialised with exactly two biquads, the form
    // that TwoBiquadRecurrence runs.
    bool IsTwoBiquadCascade() const { return m_pState1 != nullptr && m_iNumBiquads == 2; }
    // After a block run by a TwoBiquadRecurrence: leave the output ports as
    // the last firing would (element 0 the last section, element 1 the first).
    void SetTwoBiquadOutputs(double section0, double section1);
};

}  // namespace TesselModelBuilder
