// BiquadCascade: tap checks, a0 normalisation and the direct form II loop.
#include "blocks/BiquadCascade.h"

#include <cstdint>
#include <sstream>
#include <string>

#include "dataflow/DFErrorHandler.h"

namespace TesselModelBuilder {

namespace {

// Truncation toward zero to a 32-bit integer as the x86 conversion does it:
// NaN, infinities and values out of range give INT32_MIN, without relying on
// the undefined out-of-range cast.
int32_t TruncateToInt32(double value) {
    if (!(value > -2147483649.0 && value < 2147483648.0)) return INT32_MIN;
    return static_cast<int32_t>(value);
}

// |v| in 32-bit two's complement: |INT32_MIN| wraps to itself and stays negative.
int32_t WrappingAbs(int32_t value) {
    uint32_t magnitude = static_cast<uint32_t>(value);
    if (value < 0) magnitude = 0u - magnitude;
    return static_cast<int32_t>(magnitude);
}

// The a0 test is deliberately coarse: anything with |a0| < 1, and anything
// that does not fit a 32-bit integer, counts as zero.
bool IsZeroD0(double a0) {
    return static_cast<double>(WrappingAbs(TruncateToInt32(a0))) < 2.2250738585072014e-308;
}

// Drop the filter state. Run treats a cascade without state as not
// initialised and leaves its outputs alone, so a host that keeps running a
// model whose initialisation failed cannot read past the arrays.
void ReleaseState(double*& state1, double*& state2) {
    delete[] state1;
    delete[] state2;
    state1 = nullptr;
    state2 = nullptr;
}

void Post(DFModel* source, const std::ostringstream& text) {
    const std::string message = text.str();
    DFErrorHandler::PostError(source, message.c_str());
}

}  // namespace

BiquadCascade::~BiquadCascade() {
    delete[] m_pState1;
    delete[] m_pState2;
    delete[] m_pTaps;
}

bool BiquadCascade::Initialize() {
    if (m_iNumTaps < 1 || m_iNumTaps % 6 != 0) {
        std::ostringstream text;
        text << "The number of parameter taps must not be zero " << "and must be a multiple of "
             << 6 << " taps. " << "There are currently " << m_iNumTaps << " taps.";
        Post(this, text);
        ReleaseState(m_pState1, m_pState2);
        return false;
    }
    m_iNumBiquads = static_cast<size_t>(m_iNumTaps) / 6;

    for (size_t k = 0; k < m_iNumBiquads; ++k) {
        double* t = m_pTaps + 6 * k;
        const double a0 = t[3];
        if (IsZeroD0(a0)) {
            std::ostringstream text;
            text << "The D0 coefficient for biquad number " << (k + 1) << " cannot be zero. ";
            Post(this, text);
            ReleaseState(m_pState1, m_pState2);
            return false;
        }
        t[0] = t[0] / a0;
        t[1] = t[1] / a0;
        t[2] = t[2] / a0;
        t[4] = t[4] / a0;
        t[5] = t[5] / a0;
        t[3] = 1.0;
    }

    ReleaseState(m_pState1, m_pState2);
    m_pState1 = new double[m_iNumBiquads]();
    m_pState2 = new double[m_iNumBiquads]();

    if (output.m_iSize > m_iNumBiquads) {
        std::ostringstream text;
        text << "The number of outputs must be less than or equal to the "
             << "number of biquads in the cascade.  Currently, there are " << output.m_iSize
             << " outputs and " << m_iNumBiquads << " biquads.";
        Post(this, text);
        return false;
    }
    return true;
}

bool BiquadCascade::Run() {
    if (m_pState1 == nullptr) return true;
    const size_t outputs = static_cast<size_t>(output.m_iSize);
    double x = input[0];
    for (size_t k = 0; k < m_iNumBiquads; ++k) {
        const double* t = m_pTaps + 6 * k;
        const double b0 = t[0], b1 = t[1], b2 = t[2], a1 = t[4], a2 = t[5];
        const double w1 = m_pState1[k];
        const double w2 = m_pState2[k];
        // w[n] = x[n] - a1 w[n-1] - a2 w[n-2];  y[n] = b0 w[n] + b1 w[n-1] + b2 w[n-2]
        const double w = (x - a1 * w1) - a2 * w2;
        const double y = (b1 * w1 + b0 * w) + b2 * w2;
        // Same test as k >= biquads - outputs, without unsigned wrap-around.
        if (k + outputs >= m_iNumBiquads) output.m_pCirBufBus[m_iNumBiquads - 1 - k][0] = y;
        m_pState2[k] = w1;
        m_pState1[k] = w;
        x = y;
    }
    return true;
}

namespace {

// The common two-section cascade with its state held in registers: this
// recurrence is the critical path of the whole receiver.
void RunTwoBiquads(const double* t, double* state1, double* state2, const double* in,
                   double* out, size_t n, double& y0, double& y1) {
    const double b0 = t[0], b1 = t[1], b2 = t[2], a1 = t[4], a2 = t[5];
    const double d0 = t[6], d1 = t[7], d2 = t[8], c1 = t[10], c2 = t[11];
    double w1 = state1[0], w2 = state2[0], v1 = state1[1], v2 = state2[1];
    double y = y0, z = y1;
    for (size_t i = 0; i < n; ++i) {
        const double w = (in[i] - a1 * w1) - a2 * w2;
        y = (b1 * w1 + b0 * w) + b2 * w2;
        w2 = w1;
        w1 = w;
        const double v = (y - c1 * v1) - c2 * v2;
        z = (d1 * v1 + d0 * v) + d2 * v2;
        v2 = v1;
        v1 = v;
        out[i] = z;
    }
    state1[0] = w1;
    state2[0] = w2;
    state1[1] = v1;
    state2[1] = v2;
    y0 = y;
    y1 = z;
}

}  // namespace

void BiquadCascade::RunBlock(const double* in, double* out, size_t n) {
    if (m_pState1 == nullptr || n == 0) return;
    const size_t outputs = static_cast<size_t>(output.m_iSize);
    if (m_iNumBiquads == 2) {
        double y0 = 0.0, y1 = 0.0;
        RunTwoBiquads(m_pTaps, m_pState1, m_pState2, in, out, n, y0, y1);
        if (outputs >= 1) output.m_pCirBufBus[0][0] = y1;
        if (outputs >= 2) output.m_pCirBufBus[1][0] = y0;
        return;
    }
    for (size_t i = 0; i < n; ++i) {
        double x = in[i];
        for (size_t k = 0; k < m_iNumBiquads; ++k) {
            const double* t = m_pTaps + 6 * k;
            const double w1 = m_pState1[k];
            const double w2 = m_pState2[k];
            const double w = (x - t[4] * w1) - t[5] * w2;
            const double y = (t[1] * w1 + t[0] * w) + t[2] * w2;
            if (i + 1 == n && k + outputs >= m_iNumBiquads)
                output.m_pCirBufBus[m_iNumBiquads - 1 - k][0] = y;
            m_pState2[k] = w1;
            m_pState1[k] = w;
            x = y;
        }
        out[i] = x;
    }
}

bool BiquadCascade::Finalize() { return true; }

}  // namespace TesselModelBuilder
