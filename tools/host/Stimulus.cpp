// Stimulus: the checks, the stimulus and the eye measurement.
#include "tools/host/Stimulus.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <stdexcept>

#include "tools/base/HostError.h"
#include "tools/signal/WaveformFile.h"
#include "tools/signal/Channel.h"
#include "tools/signal/Prbs.h"
#include "tools/signal/TouchstoneChannel.h"

namespace amihost {

namespace {

std::string TooMany(const std::string& what, size_t runs) {
    return what + (runs > 1 ? " for each of " + std::to_string(runs) + " settings" : std::string()) +
           " is more than the " + std::to_string(kMaxSamples) + " samples amihost keeps in memory";
}

}  // namespace

std::string Fmt(const char* format, double v) {
    char buf[64];
    std::snprintf(buf, sizeof buf, format, v);
    return buf;
}

int BulkDelay(const std::vector<double>& pulse, int samplesPerBit) {
    size_t peak = 0;
    for (size_t i = 1; i < pulse.size(); ++i)
        if (std::fabs(pulse[i]) > std::fabs(pulse[peak])) peak = i;
    return std::max(0, static_cast<int>(peak) - samplesPerBit);
}

// The timing and levels of the command line, checked before anything uses
// them: the model is only ever given a positive, finite, normal sample
// interval, and the statistical eye a jitter it can spread over a UI.
void CheckNumbers(const HostOptions& o) {
    if (o.iSamplesPerBit < 1) throw HostError(ExitCode::kBadParameter, "--samples-per-bit must be at least 1");
    if (!(o.dBitRate >= 1.0 && o.dBitRate <= 1e14))
        throw HostError(ExitCode::kBadParameter, "--bit-rate must be from 1 to 1e14 bit/s");
    if (!(o.dAmplitude >= 1e-9 && o.dAmplitude <= 1e6))
        throw HostError(ExitCode::kBadParameter, "--amplitude must be from 1e-9 to 1e6 V");
    if (!(o.dNoiseRms >= 0.0 && o.dNoiseRms <= 1e6) || !(o.dRjRms >= 0.0))
        throw HostError(ExitCode::kBadParameter, "--noise and --rj must be zero or positive");
    if (!(o.dRjRms <= 0.25 / o.dBitRate))
        throw HostError(ExitCode::kBadParameter, "--rj must be at most a quarter of the bit time (" +
                                                     Fmt("%g", 0.25 / o.dBitRate) + " s)");
}

// terminationOhms: the receiver's input resistance per leg (0: matched).
// runs: how many outputs of the waveform's length are kept.
Stimulus MakeStimulus(const HostOptions& o, double terminationOhms, size_t runs) {
    CheckNumbers(o);
    Stimulus s;
    s.iSamplesPerBit = o.iSamplesPerBit;
    s.dBitTime = 1.0 / o.dBitRate;
    s.dSampleInterval = 1.0 / (o.dBitRate * o.iSamplesPerBit);
    const size_t impulseLength = static_cast<size_t>(kImpulseUI) * o.iSamplesPerBit;

    if (!o.sInput.empty()) {
        Waveform w = WaveformFile::Read(o.sInput);
        if (w.vValues.size() > kMaxSamples / runs)
            throw HostError(ExitCode::kBadFile, TooMany("waveform file " + o.sInput + ": " +
                                                            std::to_string(w.vValues.size()) + " samples", runs));
        if (w.bHasTime) {
            // The file's own time step decides the sample interval; an explicit
            // bit rate must agree with it.
            if (o.bBitRateGiven && std::fabs(w.dTimeStep - s.dSampleInterval) > 1e-6 * s.dSampleInterval)
                throw HostError(ExitCode::kBadFile,
                                "waveform file " + o.sInput + " has a time step of " + Fmt("%g", w.dTimeStep) +
                                    " s, but --bit-rate and --samples-per-bit give " + Fmt("%g", s.dSampleInterval) +
                                    " s");
            s.dSampleInterval = w.dTimeStep;
            s.dBitTime = w.dTimeStep * o.iSamplesPerBit;
        }
        s.vWave = std::move(w.vValues);
        s.vImpulse.assign(impulseLength, 0.0);
        s.vImpulse[0] = 1.0;
        s.sDescription = "waveform file " + o.sInput + ", " + std::to_string(s.vWave.size()) + " samples";
        return s;
    }

    if (o.nBits > kMaxSamples / runs / static_cast<size_t>(o.iSamplesPerBit))
        throw HostError(ExitCode::kBadParameter, TooMany("--bits " + std::to_string(o.nBits) + " x --samples-per-bit " +
                                                             std::to_string(o.iSamplesPerBit), runs));
    Prbs prbs(o.iPrbs);
    s.vBits = prbs.Bits(o.nBits);
    s.vWave.reserve(o.nBits * o.iSamplesPerBit);
    for (uint8_t b : s.vBits) s.vWave.insert(s.vWave.end(), o.iSamplesPerBit, b ? o.dAmplitude : -o.dAmplitude);
    s.vImpulse.assign(impulseLength + 1, 0.0);
    s.vImpulse[1] = 1.0;
    s.vPulse.assign(static_cast<size_t>(kPulseUI) * o.iSamplesPerBit + 1, 0.0);
    std::fill(s.vPulse.begin() + 1, s.vPulse.begin() + 1 + o.iSamplesPerBit, 1.0);
    if (o.bChannel && !o.sChannelFile.empty()) {
        const TouchstoneChannel channel(o.sChannelFile, o.sPorts, s.dSampleInterval, terminationOhms);
        // The pulse covers the channel's whole impulse response, and a UI more.
        if (channel.ImpulseLength() + 2 * o.iSamplesPerBit > s.vPulse.size())
            s.vPulse.resize(channel.ImpulseLength() + 2 * o.iSamplesPerBit, 0.0);
        channel.Process(s.vWave);
        channel.Process(s.vImpulse);
        channel.Process(s.vPulse);
        s.bChannel = true;
        s.dLossAtNyquist = channel.LossDb(0.5 / s.dBitTime);
        s.sChannel = channel.Describe() + "; " +
                     (std::isfinite(s.dLossAtNyquist) ? "loss " + Fmt("%.1f", s.dLossAtNyquist) + " dB at Nyquist ("
                                                      : std::string("no data at Nyquist (simulated as passing nothing at ")) +
                     Fmt("%g", 0.5e-9 / s.dBitTime) + " GHz)";
        s.vChannelWarnings = channel.Warnings(1.0 / s.dBitTime);
    } else if (o.bChannel) {
        const Channel channel(Channel::DefaultCorners(), s.dSampleInterval);
        channel.Process(s.vWave);
        channel.Process(s.vImpulse);
        channel.Process(s.vPulse);
        s.bChannel = true;
        s.dLossAtNyquist = channel.LossDb(0.5 / s.dBitTime);
        s.sChannel = Host::ChannelSummary(1.0 / s.dBitTime);
    }
    // The leading zero only kept the pulse off the filter's settled start.
    s.vImpulse.erase(s.vImpulse.begin());
    s.vPulse.erase(s.vPulse.begin());
    if (s.bChannel) {
        s.iChannelDelay = BulkDelay(s.vPulse, o.iSamplesPerBit);
        s.sChannel += "; delay " + Fmt("%.1f", s.iChannelDelay * s.dSampleInterval * 1e12) + " ps (" +
                      Fmt("%.1f", static_cast<double>(s.iChannelDelay) / o.iSamplesPerBit) + " UI)";
    }
    s.sDescription = "PRBS" + std::to_string(o.iPrbs) + " NRZ, " + std::to_string(o.nBits) + " bits at " +
                     Fmt("%g", o.dBitRate / 1e9) + " Gb/s, " + std::to_string(o.iSamplesPerBit) +
                     " samples/bit, +/-" + Fmt("%g", o.dAmplitude) + " V";
    return s;
}

EyeResult MeasureEye(const Stimulus& s, const std::vector<double>& wave, size_t ignoreBits) {
    try {
        if (s.vBits.empty()) return EyeMetrics::MeasureBlind(wave, s.iSamplesPerBit, ignoreBits);
        const int first = s.iChannelDelay;
        return EyeMetrics::Measure(wave, s.iSamplesPerBit, s.vBits, ignoreBits, first + kMaxLatencyUI * s.iSamplesPerBit,
                                   first);
    } catch (const std::invalid_argument& e) {
        if (s.vBits.empty()) throw HostError(ExitCode::kBadFile, std::string(e.what()) + " (or use fewer --ignore-bits)");
        throw HostError(ExitCode::kBadParameter, std::string(e.what()) + " (use more bits or fewer ignored bits)");
    }
}


}  // namespace amihost
