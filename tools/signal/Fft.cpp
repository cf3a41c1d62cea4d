// Fft: FFTW r2c / c2r with the planner under a lock.
#include "tools/signal/Fft.h"

#include <fftw3.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <stdexcept>

namespace amihost {

namespace {

std::mutex& PlannerLock() {
    static std::mutex lock;
    return lock;
}

}  // namespace

std::vector<std::complex<double>> Fft::Forward(const std::vector<double>& x) {
    if (x.empty()) throw std::invalid_argument("Fft::Forward of an empty signal");
    const int n = static_cast<int>(x.size());
    std::vector<double> in(x);
    std::vector<std::complex<double>> out(x.size() / 2 + 1);
    fftw_plan plan;
    {
        std::lock_guard<std::mutex> guard(PlannerLock());
        plan = fftw_plan_dft_r2c_1d(n, in.data(), reinterpret_cast<fftw_complex*>(out.data()), FFTW_ESTIMATE);
    }
    fftw_execute(plan);
    std::lock_guard<std::mutex> guard(PlannerLock());
    fftw_destroy_plan(plan);
    return out;
}

std::vector<double> Fft::Inverse(const std::vector<std::complex<double>>& X, size_t n) {
    if (n == 0 || X.size() != n / 2 + 1) throw std::invalid_argument("Fft::Inverse: spectrum size is not n/2 + 1");
    std::vector<std::complex<double>> in(X);  // c2r overwrites its input
    std::vector<double> out(n);
    fftw_plan plan;
    {
        std::lock_guard<std::mutex> guard(PlannerLock());
        plan = fftw_plan_dft_c2r_1d(static_cast<int>(n), reinterpret_cast<fftw_complex*>(in.data()), out.data(),
                                    FFTW_ESTIMATE);
    }
    fftw_execute(plan);
    {
        std::lock_guard<std::mutex> guard(PlannerLock());
        fftw_destroy_plan(plan);
    }
    const double scale = 1.0 / static_cast<double>(n);
    for (double& v : out) v *= scale;
    return out;
}

std::vector<double> Fft::Convolve(const std::vector<double>& a, const std::vector<double>& b) {
    if (a.empty() || b.empty()) return {};
    const size_t len = a.size() + b.size() - 1;
    const size_t n = NextPow2(len);
    std::vector<double> pa(a), pb(b);
    pa.resize(n, 0.0);
    pb.resize(n, 0.0);
    std::vector<std::complex<double>> A = Forward(pa);
    const std::vector<std::complex<double>> B = Forward(pb);
    for (size_t k = 0; k < A.size(); ++k) A[k] *= B[k];
    std::vector<double> y = Inverse(A, n);
    y.resize(len);
    return y;
}

size_t Fft::NextPow2(size_t n) {
    size_t p = 1;
    while (p < n) p <<= 1;
    return p;
}

}  // namespace amihost
