// BesselLPF: low-pass FIR with the magnitude and phase of an analogue Bessel
// filter of order 1 to 6. The analogue response is sampled on an FFT grid,
// transformed back to an impulse response and truncated to NumTaps samples
// centred on t = 0, which delays the output by NumTaps / 2 samples.
#pragma once

#include <complex>
#include <cstdint>
#include <vector>

#include "blocks/SimdLevel.h"
#include "dataflow/CircularBuffer.h"
#include "dataflow/DFModel.h"

namespace TesselModelBuilder {

class BesselLPF : public DFModel {
public:
    double Bandwidth = 0.0;   // Hz, twice the -3 dB frequency
    int32_t BesselOrder = 0;  // 1 .. 6
    int32_t NumTaps = 0;      // T, FIR length, >= 3 and < FFTSize
    double SampleRate = 0.0;  // fs, samples per second on the ports
    int32_t FFTSize = 0;      // N, design grid points, a power of two >= 16
    CircularBuffer<double> input;
    CircularBuffer<double> output;
    std::vector<double> m_vTaps;          // FIR coefficients, T long; taps[k] weighs x[t-k]
    std::vector<double> m_vConvInput;     // frequency-domain convolution workspace, unused: stays empty
    std::vector<double> m_vConvKernel;    // likewise, unused: stays empty
    std::vector<double> m_vConvOutput;    // likewise, unused: stays empty
    std::vector<double> m_vDelayLine;     // past inputs, T long; x[t-k] at (index + k) mod T
    int32_t m_iDelayIndex = 0;            // position of the newest sample x[t]

    bool Setup() override;
    bool Initialize() override;
    bool Run() override;
    bool Finalize() override;

    // n firings at once: in[i] is the input of firing i, out[i] its output.
    // Same sums in the same order as Run and the same state afterwards; the
    // level only chooses how many output samples are computed side by side.
    // Returns false, touching nothing, where Run would fail.
    bool RunBlock(const double* in, double* out, size_t n, SimdLevel level);
    // RunBlock in two halves, for callers that compute the sums themselves:
    // BeginBlock returns the flat history (T - 1 past inputs, then `in`) that
    // the sums read, or null when the filter is not designed; EndBlock then
    // leaves the state that n firings leave.
    const double* BeginBlock(const double* in, size_t n);
    // BeginBlock without the copy: the caller writes the n new inputs at
    // x + T - 1 before the sums read them.
    double* OpenBlock(size_t n);
    void EndBlock(const double* in, size_t n, double lastOutput);
    // EndBlock without the output port: the delay line after n more inputs.
    void AdvanceLine(const double* in, size_t n);
    // Taps designed and a delay line to match: the block forms can run.
    bool IsDesigned() const;

    // Bessel polynomial of the given order at s (orders outside 1..6 use 6).
    std::complex<double> BesselPoly(int order, std::complex<double> s);
    // n-point complex FFT of data in place: sign 1 is the unscaled forward
    // transform (kernel e^{-j2πkm/n}); any other sign the inverse scaled by 1/n.
    void fft_cx(std::vector<std::complex<double>>& data, int n, int sign);
    void ifft_cx(std::vector<std::complex<double>>& data, int n, int sign);
    // In-place radix-2 FFT of n complex points interleaved as 2n doubles
    // (re, im); unscaled; sign 1 forward, -1 positive exponent. n must be a
    // power of two: any other size gives a meaningless result.
    void fft_rif(double* data, int n, int sign);
    // Circular convolution of n points by transform: data becomes data (*) kernel.
    void fft_conv(std::vector<std::complex<double>>& data,
                  const std::vector<std::complex<double>>& kernel, int n);

private:
    std::vector<double> m_vBlockInput;    // block-path scratch: T - 1 past inputs, then the block
};

}  // namespace TesselModelBuilder
