// An independent Bessel low-pass FIR design: the order-n Bessel response
// sampled on the N-point grid (Horner, long double), a direct inverse DFT,
// and the T taps h[-T/2 .. (T-1)/2], oldest first.
#pragma once

#include <cmath>
#include <complex>
#include <vector>

namespace kv2_test {

inline std::vector<double> BesselTaps(double bandwidth, int order, int T, double fs, int N) {
    using cld = std::complex<long double>;
    static const std::vector<std::vector<long double>> poly = {
        {1, 1}, {1, 3, 3}, {1, 6, 15, 15}, {1, 10, 45, 105, 105},
        {1, 15, 105, 420, 945, 945}, {1, 21, 210, 1260, 4725, 10395, 10395}};
    const double w0[] = {1.0, 1.361, 1.765, 2.114, 2.427, 2.703};  // -3 dB corners
    std::vector<cld> H(N, 0);
    for (int k = 0; k < N; ++k) {
        if (k == N / 2) continue;
        const cld s(0, (k < N / 2 ? k : k - N) * (long double)fs / N / (bandwidth / 2) * w0[order - 1]);
        cld y = 0;
        for (long double c : poly[order - 1]) y = y * s + c;
        H[k] = poly[order - 1].back() / y;
    }
    std::vector<double> taps;
    for (int m = -T / 2; m < T - T / 2; ++m) {
        cld sum = 0;
        for (int k = 0; k < N; ++k) sum += H[k] * std::polar(1.0L, 2 * M_PIl * k * m / N);
        taps.push_back(static_cast<double>(sum.real() / N));
    }
    return taps;
}

}  // namespace kv2_test
