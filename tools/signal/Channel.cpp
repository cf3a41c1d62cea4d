// Channel: cascade of first-order low-pass sections (step-invariant
// discretisation, see e.g. Oppenheim & Schafer, "Discrete-Time Signal
// Processing", impulse and step invariance).
#include "tools/signal/Channel.h"

#include <cmath>
#include <cstdio>
#include <stdexcept>

namespace amihost {

namespace {
const double kPi = 3.14159265358979323846;
}

Channel::Channel(std::vector<double> cornersHz, double sampleInterval) : m_vCorners(std::move(cornersHz)) {
    if (!(sampleInterval > 0.0) || !std::isfinite(sampleInterval))
        throw std::invalid_argument("channel sample interval must be positive");
    for (double f : m_vCorners) {
        if (!(f > 0.0) || !std::isfinite(f)) throw std::invalid_argument("channel corner frequencies must be positive");
        m_vAlpha.push_back(1.0 - std::exp(-2.0 * kPi * f * sampleInterval));
    }
}

std::vector<double> Channel::DefaultCorners() { return {1e9, 6e9}; }

double Channel::LossDb(double f) const {
    double db = 0.0;
    for (double fc : m_vCorners) {
        const double r = f / fc;
        db += 10.0 * std::log10(1.0 + r * r);
    }
    return db;
}

std::string Channel::Describe(const std::vector<double>& cornersHz) {
    std::string text = std::to_string(cornersHz.size()) + " first-order RC low-pass sections at";
    char buf[32];
    for (size_t i = 0; i < cornersHz.size(); ++i) {
        std::snprintf(buf, sizeof buf, "%s %g", i == 0 ? "" : ",", cornersHz[i] / 1e9);
        text += buf;
    }
    return text + " GHz";
}

void Channel::Process(std::vector<double>& wave) const {
    if (wave.empty()) return;
    for (double alpha : m_vAlpha) {
        double y = wave[0];  // y[n-1], settled at the first input value
        for (double& x : wave) {
            y = y + alpha * (x - y);
            x = y;
        }
    }
}

}  // namespace amihost
