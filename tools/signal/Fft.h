// Fft: the few real-signal transforms the host needs, on FFTW. Plans are
// made with FFTW_ESTIMATE (no timing runs) under one process-wide lock,
// because FFTW's planner is not thread-safe and sweeps run in threads.
#pragma once

#include <complex>
#include <vector>

namespace amihost {

class Fft {
public:
    // X[k] = sum_n x[n] exp(-2 pi i k n / N), k = 0 .. N/2 (N = x.size() > 0).
    static std::vector<std::complex<double>> Forward(const std::vector<double>& x);
    // The real x of length n whose Forward is X (X.size() == n/2 + 1),
    // including the 1/n: Inverse(Forward(x), x.size()) == x up to rounding.
    static std::vector<double> Inverse(const std::vector<std::complex<double>>& X, size_t n);
    // Linear convolution of a and b, all a.size() + b.size() - 1 samples.
    static std::vector<double> Convolve(const std::vector<double>& a, const std::vector<double>& b);
    // The smallest power of two >= n.
    static size_t NextPow2(size_t n);
};

}  // namespace amihost
