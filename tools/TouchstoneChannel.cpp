// TouchstoneChannel: convolution with a Touchstone channel's impulse response.
#include "tools/TouchstoneChannel.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "tools/Fft.h"
#include "tools/Touchstone.h"

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
    } else if (f >= fx.back()) {
        m = std::abs(m_vH.back());
    } else {
        const size_t i = static_cast<size_t>(std::upper_bound(fx.begin(), fx.end(), f) - fx.begin());
        const double t = (f - fx[i - 1]) / (fx[i] - fx[i - 1]);
        m = std::abs(m_vH[i - 1]) + t * (std::abs(m_vH[i]) - std::abs(m_vH[i - 1]));
    }
    return -20.0 * std::log10(std::max(m, 1e-300));
}

std::string TouchstoneChannel::Describe() const {
    char buf[160];
    std::snprintf(buf, sizeof buf, "%d-port, %zu points %g to %g GHz, %s", m_iPorts, m_vFrequencyHz.size(),
                  m_vFrequencyHz.front() / 1e9, m_vFrequencyHz.back() / 1e9,
                  m_iPorts == 2 ? "S21" : ("SDD21 of pairing " + m_sPorts).c_str());
    return "Touchstone " + m_sPath + ": " + buf;
}

}  // namespace amihost
