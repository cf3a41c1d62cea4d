// BesselLPF: FIR design by frequency sampling of the analogue Bessel response
// and the direct-form FIR that runs it. The FFT is the classic in-place
// radix-2 decimation-in-time routine (bit reversal, then Danielson-Lanczos
// butterflies with the twiddle factors advanced by a trigonometric
// recurrence), as in Press et al., Numerical Recipes, ch. 12.2.
#include "blocks/BesselLPF.h"

#include <algorithm>
#include <cmath>

#include "blocks/FirKernels.h"

#include "dataflow/DFErrorHandler.h"

namespace TesselModelBuilder {

namespace {

// -3 dB angular frequency of the delay-normalised Bessel filter by order,
// rounded as the design has always used them.
double BesselCorner(int order) {
    switch (order) {
        case 1: return 1.0;
        case 2: return 1.361;
        case 3: return 1.765;
        case 4: return 2.114;
        case 5: return 2.427;
        default: return 2.703;
    }
}

}  // namespace

bool BesselLPF::Setup() {
    if (Bandwidth <= 0.0) {
        DFErrorHandler::PostError(this, "Bandwidth must be >0");
        return false;
    }
    if (BesselOrder < 1 || BesselOrder > 6) {
        DFErrorHandler::PostError(this, "BesselOrder must be in [1,6]");
        return false;
    }
    if (SampleRate <= 0.0) {
        DFErrorHandler::PostError(this, "SampleRate must be >0");
        return false;
    }
    if (NumTaps < 3) {
        DFErrorHandler::PostError(this, "NumTaps must be >=3");
        return false;
    }
    if (NumTaps > 256)
        DFErrorHandler::PostWarning(this, "NumTaps is >256, simulation speed may be slow");
    if (FFTSize < 16) {
        DFErrorHandler::PostError(this, "FFTSize must be >=16");
        return false;
    }
    if (FFTSize <= NumTaps) {
        DFErrorHandler::PostError(this, "NumTaps must be < FFTSize");
        return false;
    }
    input.m_iRate = 1;
    output.m_iRate = 1;
    if (input.m_iHistoryDepth == 0) input.m_iHistoryDepth = 1;
    if (output.m_iHistoryDepth == 0) output.m_iHistoryDepth = 1;
    return true;
}

// Design by frequency sampling. On the grid f_k = (k/N) fs, k = -N/2+1 .. N/2-1,
// with the frequency normalised so that the -3 dB point Bandwidth/2 maps to w0,
//   x_k = ((k/N) fs / (Bandwidth/2)) w0,   H[k] = B_n(0) / B_n(j x_k),
// and H[N/2] = 0 (negative k stored at k + N). The inverse FFT gives h, which
// is truncated to h[-T/2 .. (T-1)/2] and laid out oldest first:
//   taps = Re h[N-T/2 .. N-1], Re h[0 .. (T-1)/2].
// No window and no renormalisation: the DC gain is what the truncation leaves.
bool BesselLPF::Initialize() {
    const int N = FFTSize;
    const int T = NumTaps;
    const int n = BesselOrder;
    const double fs = SampleRate;
    const double B = Bandwidth;
    const double w0 = BesselCorner(n);
    const std::complex<double> zero(0.0, 0.0);
    if (T < 1 || N <= T) return false;  // only reachable without a passed Setup

    std::vector<std::complex<double>> H(N, zero);
    for (int k = 0; k < N / 2; ++k) {
        const double x = ((static_cast<double>(k) / N) * fs) / (B * 0.5) * w0;
        H[k] = BesselPoly(n, zero) / BesselPoly(n, std::complex<double>(0.0, x));
    }
    H[N / 2] = zero;
    for (int k = N / 2 + 1; k < N; ++k) {
        const double x = ((static_cast<double>(k - N) / N) * fs) / (B * 0.5) * w0;
        H[k] = BesselPoly(n, zero) / BesselPoly(n, std::complex<double>(0.0, x));
    }

    std::vector<std::complex<double>> h = H;
    ifft_cx(h, N, -1);

    for (int i = N / 2; i <= N - T / 2 - 1; ++i) h[i] = zero;
    for (int i = (T - 1) / 2 + 1; i <= N / 2 - 1; ++i) h[i] = zero;

    const int h2 = T / 2;
    m_vTaps.resize(T);
    for (int i = 0; i < h2; ++i) m_vTaps[i] = h[N - h2 + i].real();
    for (int i = h2; i < T; ++i) m_vTaps[i] = h[i - h2].real();

    // Existing delay-line contents survive a re-design of the same length.
    m_vDelayLine.resize(T, 0.0);
    m_iDelayIndex = 0;
    return true;
}

// y[t] = sum_{k=0}^{T-1} taps[k] x[t-k]. The newest sample sits at the delay
// index and older ones follow it, so the sum runs from the index to the end
// of the line and then wraps to its start: two loops instead of a modulo.
bool BesselLPF::IsDesigned() const {
    const int T = static_cast<int>(m_vTaps.size());
    return T != 0 && m_vDelayLine.size() == m_vTaps.size() && m_iDelayIndex >= 0 &&
           m_iDelayIndex < T;
}

bool BesselLPF::Run() {
    if (!IsDesigned()) return false;
    const int T = static_cast<int>(m_vTaps.size());

    const int index = m_iDelayIndex;
    const double* taps = m_vTaps.data();
    double* line = m_vDelayLine.data();
    line[index] = input[0];

    double& y = output[0];
    y = 0.0;
    for (int i = index; i < T; ++i) y += taps[i - index] * line[i];
    for (int i = 0; i < index; ++i) y += taps[T - index + i] * line[i];

    m_iDelayIndex = (index + T - 1) % T;
    return true;
}

// The delay line holds x[t-k] at (index + k) mod T before firing t stores
// x[t] at index; the block path unrolls it into a flat history, runs the sums
// there, and folds the newest samples back where n firings would have put them.
const double* BesselLPF::BeginBlock(const double* in, size_t n) {
    double* x = OpenBlock(n);
    if (x != nullptr) std::copy(in, in + n, x + (m_vTaps.size() - 1));
    return x;
}

double* BesselLPF::OpenBlock(size_t n) {
    if (!IsDesigned()) return nullptr;
    const size_t T = m_vTaps.size();
    const size_t index = static_cast<size_t>(m_iDelayIndex);
    const double* line = m_vDelayLine.data();
    m_vBlockInput.resize(T - 1 + n);
    double* x = m_vBlockInput.data();
    size_t k = 1;
    for (; k < T && index + k < T; ++k) x[T - 1 - k] = line[index + k];
    for (; k < T; ++k) x[T - 1 - k] = line[index + k - T];
    return x;
}

void BesselLPF::EndBlock(const double* in, size_t n, double lastOutput) {
    if (n == 0) return;
    AdvanceLine(in, n);
    output[0] = lastOutput;
}

void BesselLPF::AdvanceLine(const double* in, size_t n) {
    if (n == 0) return;
    const size_t T = m_vTaps.size();
    const size_t index = static_cast<size_t>(m_iDelayIndex);
    double* line = m_vDelayLine.data();
    // Firing i stores its sample at (index - i) mod T: the kept samples go
    // down the line from `position`, wrapping once from 0 to T - 1.
    const size_t kept = n < T ? n : T;
    const size_t position = (index + T - (n - kept) % T) % T;
    const double* newest = in + n - kept;
    const size_t first = std::min(kept, position + 1);
    for (size_t i = 0; i < first; ++i) line[position - i] = newest[i];
    for (size_t i = first; i < kept; ++i) line[T - 1 - (i - first)] = newest[i];
    m_iDelayIndex = static_cast<int32_t>((index + T - n % T) % T);
}

bool BesselLPF::RunBlock(const double* in, double* out, size_t n, SimdLevel level) {
    const double* x = BeginBlock(in, n);
    if (x == nullptr) return false;
    if (n == 0) return true;
    FirBlock(level, m_vTaps.data(), m_vTaps.size(), x, out, n);
    EndBlock(in, n, out[n - 1]);
    return true;
}

bool BesselLPF::Finalize() { return true; }

// Evaluated literally, powers as repeated products from the left and terms
// summed left to right, so that every caller gets the same bits.
std::complex<double> BesselLPF::BesselPoly(int order, std::complex<double> s) {
    switch (order) {
        case 1:
            return s + 1.0;
        case 2:
            return s * s + 3.0 * s + 3.0;
        case 3:
            return s * s * s + 6.0 * s * s + 15.0 * s + 15.0;
        case 4:
            return s * s * s * s + 10.0 * s * s * s + 45.0 * s * s + 105.0 * s + 105.0;
        case 5:
            return s * s * s * s * s + 15.0 * s * s * s * s + 105.0 * s * s * s +
                   420.0 * s * s + 945.0 * s + 945.0;
        default:
            return s * s * s * s * s * s + 21.0 * s * s * s * s * s +
                   210.0 * s * s * s * s + 1260.0 * s * s * s + 4725.0 * s * s +
                   10395.0 * s + 10395.0;
    }
}

void BesselLPF::fft_cx(std::vector<std::complex<double>>& data, int n, int sign) {
    if (n <= 0 || data.size() < static_cast<size_t>(n)) return;
    std::vector<double> work(2 * static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) {
        work[2 * i] = data[i].real();
        work[2 * i + 1] = data[i].imag();
    }
    fft_rif(work.data(), n, sign);
    if (sign != 1)
        for (double& v : work) v = v / n;
    for (int i = 0; i < n; ++i) data[i] = std::complex<double>(work[2 * i], work[2 * i + 1]);
}

void BesselLPF::ifft_cx(std::vector<std::complex<double>>& data, int n, int sign) {
    fft_cx(data, n, sign);
}

// Indices below are zero-based over the 2n doubles; element m occupies
// data[2m] (re) and data[2m+1] (im). The bounds tests on the second index
// never fire for a power-of-two n; they keep other sizes inside the array.
void BesselLPF::fft_rif(double* data, int n, int sign) {
    if (n < 1) return;
    const long nn = n;
    const long n2 = 2 * nn;

    // Bit-reversal permutation.
    long j = 0;
    for (long i = 0; i < n2; i += 2) {
        if (j > i && j + 1 < n2) {
            std::swap(data[j], data[i]);
            std::swap(data[j + 1], data[i + 1]);
        }
        long m = nn;
        while (m >= 2 && j >= m) {
            j -= m;
            m >>= 1;
        }
        j += m;
    }

    // Danielson-Lanczos: combine transforms of length mmax/2 into mmax/2 * 2.
    long mmax = 2;
    while (n2 > mmax) {
        const long istep = mmax << 1;
        const double theta = -6.28318530717959 / (sign * mmax);
        double wtemp = std::sin(0.5 * theta);
        const double wpr = -2.0 * wtemp * wtemp;
        const double wpi = std::sin(theta);
        double wr = 1.0;
        double wi = 0.0;
        for (long m = 0; m < mmax; m += 2) {
            for (long i = m; i < n2; i += istep) {
                const long k = i + mmax;
                if (k + 1 >= n2) break;
                const double tempr = wr * data[k] - wi * data[k + 1];
                const double tempi = wr * data[k + 1] + wi * data[k];
                data[k] = data[i] - tempr;
                data[k + 1] = data[i + 1] - tempi;
                data[i] += tempr;
                data[i + 1] += tempi;
            }
            wtemp = wr;
            wr = (wr * wpr - wi * wpi) + wr;
            wi = (wi * wpr + wtemp * wpi) + wi;
        }
        mmax = istep;
    }
}

// Forward transforms of both (sign 1), product bin by bin, inverse (sign -1).
void BesselLPF::fft_conv(std::vector<std::complex<double>>& data,
                         const std::vector<std::complex<double>>& kernel, int n) {
    if (n <= 0 || data.size() < static_cast<size_t>(n) || kernel.size() < static_cast<size_t>(n))
        return;
    std::vector<std::complex<double>> K(kernel.begin(), kernel.begin() + n);
    fft_cx(data, n, 1);
    fft_cx(K, n, 1);
    for (int k = 0; k < n; ++k) data[k] = data[k] * K[k];
    ifft_cx(data, n, -1);
}

}  // namespace TesselModelBuilder
