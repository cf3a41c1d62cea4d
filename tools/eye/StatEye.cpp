// StatEye: density convolution per sampling phase, noise, jitter, contours.
#include "tools/eye/StatEye.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace amihost {

namespace {

// Cursors below this fraction of the main one move nothing visible.
const double kNegligible = 1e-7;

// out += weight * in shifted up by `shift` bins (fractional: split linearly).
void AddShifted(std::vector<double>& out, const std::vector<double>& in, double shift, double weight) {
    const double fl = std::floor(shift);
    const long q = static_cast<long>(fl);
    const double r = shift - fl;
    const long n = static_cast<long>(in.size());
    for (long b = 0; b < n; ++b) {
        if (in[b] == 0.0) continue;
        const long lo = std::min(n - 1, std::max(0L, b + q)), hi = std::min(n - 1, std::max(0L, b + q + 1));
        out[lo] += weight * (1.0 - r) * in[b];
        out[hi] += weight * r * in[b];
    }
}

std::vector<double> Gaussian(double sigma) {
    const long half = static_cast<long>(std::ceil(8.0 * sigma));
    std::vector<double> w(2 * half + 1);
    double sum = 0.0;
    for (long k = -half; k <= half; ++k) sum += w[k + half] = std::exp(-0.5 * (k / sigma) * (k / sigma));
    for (double& v : w) v /= sum;
    return w;
}

}  // namespace

StatEyeResult StatEye::Compute(const std::vector<double>& pulse, const StatEyeSettings& st) {
    const int S = st.iSamplesPerBit;
    if (S < 1 || !(st.dSampleInterval > 0.0) || !(st.dAmplitude > 0.0) || st.iBins < 16 || st.dNoiseRms < 0.0 ||
        st.dRjRms < 0.0)
        throw std::invalid_argument("statistical eye: bad settings");
    if (pulse.empty()) throw std::invalid_argument("statistical eye: empty pulse response");
    const long len = static_cast<long>(pulse.size());
    const long m = static_cast<long>(std::max_element(pulse.begin(), pulse.end()) - pulse.begin());
    if (!(pulse[m] > 0.0)) throw std::invalid_argument("statistical eye: the pulse response has no positive peak");

    // Columns phi = -S/2 - J .. S/2 - 1 + J; J reaches 8 sigma of jitter.
    const double sigmaT = st.dRjRms / st.dSampleInterval;
    const long J = sigmaT > 0.0 ? static_cast<long>(std::ceil(8.0 * sigmaT)) : 0;
    const long first = -S / 2 - J, count = S + 2 * J;
    auto cursors = [&](long phi) {
        std::vector<double> c;  // [0] the main cursor
        const long at = m + phi;
        c.push_back(at >= 0 && at < len ? st.dAmplitude * pulse[at] : 0.0);
        for (long i = ((at % S) + S) % S; i < len; i += S)
            if (i != at) c.push_back(st.dAmplitude * pulse[i]);
        return c;
    };
    double vmax = 0.0;
    for (long phi = first; phi < first + count; ++phi) {
        double sum = 0.0;
        for (double c : cursors(phi)) sum += std::fabs(c);
        vmax = std::max(vmax, sum);
    }
    vmax = 1.05 * vmax + 8.0 * st.dNoiseRms;
    const int B = st.iBins + (st.iBins % 2);  // even: 0 V is a bin edge
    const double dv = 2.0 * vmax / B;

    StatEyeResult r;
    r.dMainCursor = st.dAmplitude * pulse[m];
    for (int b = 0; b < B; ++b) r.vVolts.push_back(-vmax + (b + 0.5) * dv);
    const std::vector<double> noise = st.dNoiseRms > 0.0 ? Gaussian(st.dNoiseRms / dv) : std::vector<double>{1.0};
    std::vector<std::vector<double>> columns;
    for (long phi = first; phi < first + count; ++phi) {
        const std::vector<double> c = cursors(phi);
        std::vector<double> pdf(B, 0.0), next(B);
        // Start from a point mass at the main cursor, split between the two
        // bins around it.
        {
            std::vector<double> delta(B, 0.0);
            delta[B / 2] = 1.0;  // the bin starting at 0 V: centre at +dv/2
            AddShifted(pdf, delta, c[0] / dv - 0.5, 1.0);
        }
        for (size_t k = 1; k < c.size(); ++k) {
            if (std::fabs(c[k]) < kNegligible * std::fabs(r.dMainCursor)) continue;
            next.assign(B, 0.0);
            AddShifted(next, pdf, c[k] / dv, 0.5);
            AddShifted(next, pdf, -c[k] / dv, 0.5);
            pdf.swap(next);
        }
        if (noise.size() > 1) {
            const long half = static_cast<long>(noise.size() / 2);
            next.assign(B, 0.0);
            for (long b = 0; b < B; ++b)
                if (pdf[b] != 0.0)
                    for (long k = -half; k <= half; ++k)
                        next[std::min<long>(B - 1, std::max<long>(0, b + k))] += pdf[b] * noise[k + half];
            pdf.swap(next);
        }
        columns.push_back(std::move(pdf));
    }
    const std::vector<double> jitter = sigmaT > 0.0 ? Gaussian(sigmaT) : std::vector<double>{1.0};
    const long jh = static_cast<long>(jitter.size() / 2);
    for (long c = J; c < J + S; ++c) {
        std::vector<double> col(B, 0.0);
        for (long d = -jh; d <= jh; ++d) {
            const long from = std::min(count - 1, std::max(0L, c + d));
            for (int b = 0; b < B; ++b) col[b] += jitter[d + jh] * columns[from][b];
        }
        double ber = 0.0;
        for (int b = 0; b < B / 2; ++b) ber += col[b];
        r.vPhaseUI.push_back(static_cast<double>(first + c) / S);
        r.vBathtub.push_back(ber);
        r.vDensity.push_back(std::move(col));
    }
    for (double level : st.vLevels) {
        StatEyeContour ct;
        ct.dBer = level;
        ct.dHeight = -2.0 * vmax;
        int open = 0;
        for (size_t c = 0; c < r.vDensity.size(); ++c) {
            // The voltage below which a 1 falls with probability `level`,
            // linear within the bin where the cumulative sum crosses it.
            const std::vector<double>& col = r.vDensity[c];
            double cum = 0.0, upper = vmax;
            for (int b = 0; b < B; ++b) {
                if (cum + col[b] >= level) {
                    upper = -vmax + (b + (level - cum) / col[b]) * dv;
                    break;
                }
                cum += col[b];
            }
            ct.vUpper.push_back(upper);
            ct.dHeight = std::max(ct.dHeight, 2.0 * upper);
            if (r.vBathtub[c] < level) ++open;
        }
        ct.dWidthUI = static_cast<double>(open) / S;
        r.vContours.push_back(std::move(ct));
    }
    return r;
}

}  // namespace amihost
