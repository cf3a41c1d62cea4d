// Channel: the built-in lossy interconnect between the PRBS transmitter and
// the receiver model, a cascade of first-order RC low-pass sections
//
//     H(s) = prod_i 1 / (1 + s / (2 pi f_i)),
//
// with unit gain at DC. Each section is discretised step-invariantly (exact
// for a waveform that holds its value over each sample interval, as an NRZ
// pattern does): y[n] = y[n-1] + (1 - exp(-2 pi f_i T)) (x[n] - y[n-1]).
// The default corners, 1 GHz and 6 GHz, give a loss that keeps rising with
// frequency like a long lossy board trace: 22.2 dB at 7.8125 GHz, which
// closes the eye of a 15.625 Gb/s pattern without equalization.
#pragma once

#include <string>
#include <vector>

namespace amihost {

class Channel {
public:
    // cornersHz: the corner frequency of each section (Hz, > 0);
    // sampleInterval: seconds per sample (> 0). Throws std::invalid_argument.
    Channel(std::vector<double> cornersHz, double sampleInterval);

    static std::vector<double> DefaultCorners();

    // Insertion loss of the continuous-time model at frequency f (Hz), in dB
    // (positive for attenuation).
    double LossDb(double f) const;
    // One line describing the model, for help texts and summaries.
    static std::string Describe(const std::vector<double>& cornersHz);

    // Filters the waveform in place. The sections start settled at the first
    // sample's value, so a waveform that begins flat passes without a
    // start-up transient.
    void Process(std::vector<double>& wave) const;

    const std::vector<double>& Corners() const { return m_vCorners; }

private:
    std::vector<double> m_vCorners;  // corner frequency of each section, Hz
    std::vector<double> m_vAlpha;    // 1 - exp(-2 pi f_i T), per section
};

}  // namespace amihost
