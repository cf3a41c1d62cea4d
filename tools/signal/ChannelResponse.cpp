// ChannelResponse: through transfer, grid interpolation, taper, IFFT.
#include "tools/signal/ChannelResponse.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "tools/signal/Fft.h"
#include "tools/base/HostError.h"

namespace amihost {

namespace {

const double kPi = 3.14159265358979323846;
const double kMinSpanS = 20e-9;
const size_t kMaxPoints = size_t(1) << 22;
const double kTaperFraction = 0.2;

}  // namespace

PortPairing ChannelResponse::ParsePorts(const std::string& text) {
    const HostError bad(ExitCode::kBadParameter,
                        "--ports " + text + " is not a pairing such as 13-24, 12-34 or 1,3-2,4");
    const size_t dash = text.find('-');
    if (dash == std::string::npos) throw bad;
    auto pair = [&](const std::string& side, int& p, int& n) {
        const size_t comma = side.find(',');
        std::string a, b;
        if (comma != std::string::npos) {
            a = side.substr(0, comma);
            b = side.substr(comma + 1);
        } else if (side.size() == 2) {
            a = side.substr(0, 1);
            b = side.substr(1);
        } else {
            throw bad;
        }
        for (const std::string* s : {&a, &b})
            if (s->empty() || s->size() > 3 || s->find_first_not_of("0123456789") != std::string::npos) throw bad;
        p = std::atoi(a.c_str());
        n = std::atoi(b.c_str());
        if (p < 1 || n < 1 || p == n) throw bad;
    };
    PortPairing pp;
    pair(text.substr(0, dash), pp.iInP, pp.iInN);
    pair(text.substr(dash + 1), pp.iOutP, pp.iOutN);
    const int all[] = {pp.iInP, pp.iInN, pp.iOutP, pp.iOutN};
    for (int i = 0; i < 4; ++i)
        for (int j = i + 1; j < 4; ++j)
            if (all[i] == all[j]) throw bad;
    return pp;
}

std::vector<std::complex<double>> ChannelResponse::Through(const TouchstoneData& d, const PortPairing& p,
                                                           double terminationOhms) {
    std::vector<std::complex<double>> H, S22;
    H.reserve(d.vS.size());
    auto terminate = [&] {
        if (!(terminationOhms > 0.0) || terminationOhms == d.dReferenceOhms) return;
        const double g = (terminationOhms - d.dReferenceOhms) / (terminationOhms + d.dReferenceOhms);
        for (size_t k = 0; k < H.size(); ++k) H[k] = H[k] * (1.0 + g) / (1.0 - S22[k] * g);
    };
    if (d.nPorts == 2) {
        for (size_t k = 0; k < d.vS.size(); ++k) {
            H.push_back(d.S(k, 2, 1));
            S22.push_back(d.S(k, 2, 2));
        }
        terminate();
        return H;
    }
    if (d.nPorts < 4)
        throw HostError(ExitCode::kBadFile, "a channel is a 2-port or a differential 4-port (or wider), not a " +
                                                std::to_string(d.nPorts) + "-port");
    if (std::max({p.iInP, p.iInN, p.iOutP, p.iOutN}) > d.nPorts)
        throw HostError(ExitCode::kBadFile, "--ports names a port beyond the " + std::to_string(d.nPorts) + " of the network");
    for (size_t k = 0; k < d.vS.size(); ++k) {
        H.push_back(0.5 * (d.S(k, p.iOutP, p.iInP) - d.S(k, p.iOutP, p.iInN) - d.S(k, p.iOutN, p.iInP) +
                           d.S(k, p.iOutN, p.iInN)));
        S22.push_back(0.5 * (d.S(k, p.iOutP, p.iOutP) - d.S(k, p.iOutP, p.iOutN) - d.S(k, p.iOutN, p.iOutP) +
                             d.S(k, p.iOutN, p.iOutN)));
    }
    terminate();
    return H;
}

std::vector<std::complex<double>> ChannelResponse::OnGrid(const std::vector<double>& f,
                                                          const std::vector<std::complex<double>>& H, double binHz,
                                                          size_t bins, double bandHz) {
    if (f.size() < 2 || H.size() != f.size())
        throw HostError(ExitCode::kBadFile, "a channel needs at least two frequency points");
    // Magnitude and unwrapped phase at the data points, with a DC point.
    std::vector<double> fx, mag, ph;
    double prev = 0.0, turns = 0.0;
    for (size_t i = 0; i < f.size(); ++i) {
        double a = std::arg(H[i]);
        if (i > 0) {
            while (a + turns - prev > kPi) turns -= 2.0 * kPi;
            while (a + turns - prev < -kPi) turns += 2.0 * kPi;
        }
        prev = a + turns;
        fx.push_back(f[i]);
        mag.push_back(std::abs(H[i]));
        ph.push_back(prev);
    }
    // Whole turns so that the phase extrapolates to about 0 at DC.
    double atDc = ph[0];
    if (f.size() > 1 && f[0] > 0.0) atDc = ph[0] - f[0] * (ph[1] - ph[0]) / (f[1] - f[0]);
    const double shift = -2.0 * kPi * std::round(atDc / (2.0 * kPi));
    for (double& v : ph) v += shift;
    if (fx[0] > 0.0) {
        fx.insert(fx.begin(), 0.0);
        mag.insert(mag.begin(), mag[0]);
        ph.insert(ph.begin(), 0.0);
    } else {
        ph[0] = 0.0;  // a real network is real at DC
    }

    const double top = std::min(bandHz, fx.back());
    const double taperFrom = (1.0 - kTaperFraction) * top;
    std::vector<std::complex<double>> G(bins);
    size_t seg = 0;
    for (size_t k = 0; k < bins; ++k) {
        const double fk = static_cast<double>(k) * binHz;
        if (fk > top) break;
        while (seg + 2 < fx.size() && fx[seg + 1] < fk) ++seg;
        const double t = fx[seg + 1] > fx[seg] ? (fk - fx[seg]) / (fx[seg + 1] - fx[seg]) : 0.0;
        const double m = mag[seg] + t * (mag[seg + 1] - mag[seg]);
        const double a = ph[seg] + t * (ph[seg + 1] - ph[seg]);
        const double w = fk <= taperFrom ? 1.0 : 0.5 * (1.0 + std::cos(kPi * (fk - taperFrom) / (top - taperFrom)));
        G[k] = std::polar(m * w, a);
    }
    G[0] = G[0].real();
    return G;
}

std::vector<double> ChannelResponse::Impulse(const std::vector<double>& f, const std::vector<std::complex<double>>& H,
                                             double T, size_t& precursors) {
    double step = f.back();
    for (size_t i = 1; i < f.size(); ++i) step = std::min(step, f[i] - f[i - 1]);
    const double span = std::max(kMinSpanS, step > 0.0 ? 1.0 / step : 0.0);
    const size_t n = std::min(kMaxPoints, Fft::NextPow2(static_cast<size_t>(std::ceil(span / T))));
    const std::vector<std::complex<double>> G = OnGrid(f, H, 1.0 / (static_cast<double>(n) * T), n / 2 + 1, 0.5 / T);
    std::vector<double> h = Fft::Inverse(G, n);
    const double top = std::min(0.5 / T, f.back());
    precursors = std::min(n / 4, static_cast<size_t>(std::ceil(10.0 / (top * T))));
    std::rotate(h.begin(), h.end() - static_cast<long>(precursors), h.end());
    double peak = 0.0;
    for (double v : h) peak = std::max(peak, std::fabs(v));
    size_t last = h.size();
    while (last > 1 && std::fabs(h[last - 1]) < 1e-9 * peak) --last;
    h.resize(last);
    return h;
}

}  // namespace amihost
