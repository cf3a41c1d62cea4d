// TouchstoneChannel: convolution with a Touchstone channel's impulse response.
#include "tools/signal/TouchstoneChannel.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

#include "tools/signal/Fft.h"
#include "tools/signal/Touchstone.h"

namespace amihost {

TouchstoneChannel::TouchstoneChannel(const std::string& path, const std::string& ports, double sampleInterval,
                                     double terminationOhms)
    : m_sPath(path) {
    const PortPairing pairing = ChannelResponse::ParsePorts(ports);
    const TouchstoneData data = Touchstone::Load(path);
    m_iPorts = data.nPorts;
    if (m_iPorts != 2) m_sPorts = ports;
    m_vFrequencyHz = data.vFrequencyHz;
    m_vH = ChannelResponse::Through(data, pairing, terminationOhms);
    m_vImpulse = ChannelResponse::Impulse(m_vFrequencyHz, m_vH, sampleInterval, m_nPrecursors);
    if (m_iPorts == 4 && (ports == "13-24" || ports == "12-34")) {
        m_sOtherPairing = ports == "13-24" ? "12-34" : "13-24";
        const std::vector<std::complex<double>> other =
            ChannelResponse::Through(data, ChannelResponse::ParsePorts(m_sOtherPairing), terminationOhms);
        m_dOtherLowMagnitude = std::abs(other.front());
    }
    for (double v : m_vImpulse) m_dDcGain += v;
}

void TouchstoneChannel::Process(std::vector<double>& wave) const {
    if (wave.empty()) return;
    const double x0 = wave[0];
    std::vector<double> x(wave.size());
    for (size_t i = 0; i < x.size(); ++i) x[i] = wave[i] - x0;
    // Past the end the waveform is taken to hold its last value, for the
    // precursors to see.
    x.resize(wave.size() + m_nPrecursors, x.back());
    const std::vector<double> y = Fft::Convolve(x, m_vImpulse);
    for (size_t i = 0; i < wave.size(); ++i) wave[i] = y[i + m_nPrecursors] + x0 * m_dDcGain;
}

double TouchstoneChannel::LossDb(double f) const {
    const std::vector<double>& fx = m_vFrequencyHz;
    double m;
    if (f <= fx.front()) {
        m = std::abs(m_vH.front());
    } else if (f > fx.back()) {
        return std::numeric_limits<double>::infinity();
    } else if (f == fx.back()) {
        m = std::abs(m_vH.back());
    } else {
        const size_t i = static_cast<size_t>(std::upper_bound(fx.begin(), fx.end(), f) - fx.begin());
        const double t = (f - fx[i - 1]) / (fx[i] - fx[i - 1]);
        m = std::abs(m_vH[i - 1]) + t * (std::abs(m_vH[i]) - std::abs(m_vH[i - 1]));
    }
    return -20.0 * std::log10(std::max(m, 1e-300));
}

std::vector<std::string> TouchstoneChannel::Warnings(double bitRate) const {
    std::vector<std::string> w;
    auto ghz = [](double f) {
        char b[32];
        std::snprintf(b, sizeof b, "%g GHz", f / 1e9);
        return std::string(b);
    };
    const double nyquist = 0.5 * bitRate, first = m_vFrequencyHz.front(), last = m_vFrequencyHz.back();
    if (last < nyquist)
        w.push_back("WARNING: the data end at " + ghz(last) + ", below the Nyquist frequency " + ghz(nyquist) +
                    ": the channel is simulated as passing nothing above " + ghz(last));
    if (first > 0.1 * nyquist)
        w.push_back("WARNING: the data start at " + ghz(first) + ": below it the magnitude is held and the phase "
                    "extrapolated to DC, which the data do not show");
    const size_t below = static_cast<size_t>(
        std::upper_bound(m_vFrequencyHz.begin(), m_vFrequencyHz.end(), nyquist) - m_vFrequencyHz.begin());
    if (below < 16)
        w.push_back("WARNING: only " + std::to_string(below) + (below == 1 ? " data point" : " data points") +
                    " up to the Nyquist frequency " +
                    ghz(nyquist) + ": too few to describe the channel at this bit rate");
    size_t gain = 0;
    for (size_t i = 1; i < m_vH.size(); ++i)
        if (std::abs(m_vH[i]) > std::abs(m_vH[gain])) gain = i;
    if (std::abs(m_vH[gain]) > 1.01) {
        char b[160];
        std::snprintf(b, sizeof b, "WARNING: |%s| reaches %.3g at %g GHz: the data describe an active network, not a "
                      "passive channel", m_iPorts == 2 ? "S21" : "SDD21", std::abs(m_vH[gain]), m_vFrequencyHz[gain] / 1e9);
        w.push_back(b);
    }
    if (!m_sOtherPairing.empty() && m_dOtherLowMagnitude > 0.5 && m_dOtherLowMagnitude > 2.0 * std::abs(m_vH.front())) {
        char b[200];
        std::snprintf(b, sizeof b, "WARNING: pairing %s passes %.3g at %g GHz where the chosen %s passes %.3g: "
                      "is --ports %s the through path?", m_sOtherPairing.c_str(), m_dOtherLowMagnitude, first / 1e9,
                      m_sPorts.c_str(), std::abs(m_vH.front()), m_sOtherPairing.c_str());
        w.push_back(b);
    }
    return w;
}

std::string TouchstoneChannel::Describe() const {
    char buf[160];
    std::snprintf(buf, sizeof buf, "%d-port, %zu points %g to %g GHz, %s", m_iPorts, m_vFrequencyHz.size(),
                  m_vFrequencyHz.front() / 1e9, m_vFrequencyHz.back() / 1e9,
                  m_iPorts == 2 ? "S21" : ("SDD21 of pairing " + m_sPorts).c_str());
    return "Touchstone " + m_sPath + ": " + buf;
}

}  // namespace amihost
