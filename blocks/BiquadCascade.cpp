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
        NormaliseByA0(t);
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

void BiquadCascade::RunBlock(const double* in, double* out, size_t n) {
    if (m_pState1 == nullptr || n == 0) return;
    const size_t outputs = static_cast<size_t>(output.m_iSize);
    if (m_iNumBiquads == 2) {
        TwoBiquadRecurrence cascade(m_pTaps, m_pState1, m_pState2);
        for (size_t i = 0; i < n; ++i) out[i] = cascade.Step(in[i]);
        cascade.Store(m_pState1, m_pState2);
        SetTwoBiquadOutputs(cascade.y, out[n - 1]);
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

void BiquadCascade::SetTwoBiquadOutputs(double section0, double section1) {
    const size_t outputs = static_cast<size_t>(output.m_iSize);
    if (outputs >= 1) output.m_pCirBufBus[0][0] = section1;
    if (outputs >= 2) output.m_pCirBufBus[1][0] = section0;
}

bool BiquadCascade::Finalize() { return true; }

}  // namespace TesselModelBuilder
