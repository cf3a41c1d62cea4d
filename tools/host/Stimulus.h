// Stimulus: what amihost feeds the model and how it is checked: the
// command line's numbers, the PRBS through the built-in or a Touchstone
// channel (or a waveform file), the impulse and pulse responses that go with
// it, and the eye measured on a waveform against the bits sent.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/eye/EyeMetrics.h"
#include "tools/host/Host.h"

namespace amihost {

// The sampling instants searched, in UI after the channel's bulk delay: the
// model and what the channel spreads after its delay take a few UI more.
constexpr int kMaxLatencyUI = 32;
// Length of the impulse response handed to AMI_Init, in UI.
constexpr int kImpulseUI = 32;
// Every run's output is kept for the report: at most this many samples over
// all runs (1 GiB of them), refused before anything is allocated.
constexpr size_t kMaxSamples = size_t(1) << 27;
// Length of the pulse responses of the statistical eye, in UI, at least; a
// longer channel response lengthens them to cover it whole.
constexpr int kPulseUI = 128;

struct Stimulus {
    std::vector<double> vWave;      // what the model receives, V
    std::vector<uint8_t> vBits;     // the bits sent (empty for a waveform file)
    double dSampleInterval = 0.0;   // s
    double dBitTime = 0.0;          // s
    int iSamplesPerBit = 0;
    std::vector<double> vImpulse;   // channel response to a one-sample unit pulse
    std::vector<double> vPulse;     // channel response to a one-UI unit pulse (PRBS only)
    std::string sDescription;
    bool bChannel = false;
    std::string sChannel;           // one line describing the channel
    double dLossAtNyquist = 0.0;    // dB
    int iChannelDelay = 0;          // samples before the channel's pulse response rises (PRBS only)
    std::vector<std::string> vChannelWarnings;  // what the channel's data cannot tell
};

// printf of one number, as a string.
std::string Fmt(const char* format, double v);

// The channel's bulk delay: one UI before its pulse response peaks, so that
// the eye search starts before the main cursor whatever the channel's length.
int BulkDelay(const std::vector<double>& pulse, int samplesPerBit);

// The timing and levels of the command line, checked before anything uses
// them: the model is only ever given a positive, finite, normal sample
// interval, and the statistical eye a jitter it can spread over a UI.
void CheckNumbers(const HostOptions& o);

// terminationOhms: the receiver's input resistance per leg (0: matched).
// runs: how many outputs of the waveform's length are kept.
Stimulus MakeStimulus(const HostOptions& o, double terminationOhms, size_t runs);

// The eye of a waveform: against the bits sent, or (a waveform file) on the
// decisions at the phase of widest spread.
EyeResult MeasureEye(const Stimulus& s, const std::vector<double>& wave, size_t ignoreBits);

}  // namespace amihost
