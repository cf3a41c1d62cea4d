// TouchstoneChannel: a channel measured or simulated elsewhere and given as
// a Touchstone file, used like the built-in Channel: the stimulus is
// convolved with its impulse response (ChannelResponse) by FFT.
#pragma once

#include <complex>
#include <string>
#include <vector>

#include "tools/signal/ChannelResponse.h"

namespace amihost {

class TouchstoneChannel {
public:
    // terminationOhms: the receiver's input resistance per leg, 0 for a
    // matched one. Throws HostError(kBadFile) for the file, kBadParameter
    // for the pairing.
    TouchstoneChannel(const std::string& path, const std::string& ports, double sampleInterval,
                      double terminationOhms = 0.0);

    // y = h * x in place, settled at the first sample's value (as if that
    // value had been applied forever), like Channel::Process.
    void Process(std::vector<double>& wave) const;
    // Insertion loss at f (Hz), dB, of the channel as simulated: linear in
    // magnitude between data points, held below the first, and infinite
    // above the last (the simulated channel passes nothing there).
    double LossDb(double f) const;
    // What the data cannot tell about a link at `bitRate` (b/s), one
    // "WARNING: ..." sentence each: data that end below the Nyquist
    // frequency, start far above DC or have few points below it, gain (an
    // active network), and a 4-port whose other pairing passes far more at
    // its lowest frequency than the one chosen.
    std::vector<std::string> Warnings(double bitRate) const;
    std::string Describe() const;

    int Ports() const { return m_iPorts; }
    // Samples of the channel's impulse response, as Process applies it.
    size_t ImpulseLength() const { return m_vImpulse.size(); }

private:
    std::string m_sPath;
    std::string m_sPorts;               // the pairing as given ("" for a 2-port)
    int m_iPorts = 0;
    std::vector<double> m_vFrequencyHz;
    std::vector<std::complex<double>> m_vH;  // through transfer at the data frequencies
    std::vector<double> m_vImpulse;     // response to a one-sample unit pulse, from -m_nPrecursors samples
    size_t m_nPrecursors = 0;
    double m_dDcGain = 0.0;             // sum of the impulse response
    std::string m_sOtherPairing;        // the 4-port pairing not chosen ("" otherwise)
    double m_dOtherLowMagnitude = 0.0;  // its |SDD21| at the first data frequency
};

}  // namespace amihost
