// EyeMetrics: vertical and horizontal eye opening of an NRZ waveform at its
// best sampling instant.
//
// For a candidate sampling delay d (samples from the start of bit 0 to the
// instant at which bit k is read, i.e. latency plus phase), bit k is read at
// sample k * S + d, S being the samples per bit. With the transmitted bits
// known, the eye height at d is
//
//     H(d) = min { y[kS + d] : b_k = 1 } - max { y[kS + d] : b_k = 0 },
//
// negative when the eye is closed. The best delay maximises H over the
// searched range (the first maximum wins). A range wider than two UI is
// searched in two steps: all its delays over the first 1024 measured bits
// find the alignment, then the delays within one UI of that one are
// measured over all bits; the best of those is taken. The eye width is the number of
// contiguous delays around the best one with H > 0, divided by S (in UI),
// at most one UI. Bits whose sample lies before ignoreBits whole bits or past
// the end of the waveform take no part.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace amihost {

struct EyeResult {
    bool bOpen = false;        // height > 0
    double dHeight = 0.0;      // H at the best delay, V (negative: closed)
    double dWidthUI = 0.0;     // horizontal opening, UI
    int iDelay = 0;            // best sampling delay, samples
    double dPhaseUI = 0.0;     // (iDelay mod S) / S
    double dThreshold = 0.0;   // midpoint of the inner eye edges at the best delay, V
    double dLevel1 = 0.0;      // mean of the one samples at the best delay, V
    double dLevel0 = 0.0;      // mean of the zero samples at the best delay, V
    size_t nBits = 0;          // bits measured at the best delay
};

class EyeMetrics {
public:
    // Eye of `wave` whose bits are known; delays 0 .. maxDelay - 1 are
    // searched. Throws std::invalid_argument when no delay has at least one
    // one and one zero to compare.
    static EyeResult Measure(const std::vector<double>& wave, int samplesPerBit,
                             const std::vector<uint8_t>& bits, size_t ignoreBits, int maxDelay, int firstDelay = 0);

    // Eye of a waveform whose bits are unknown: the threshold is the mean of
    // the measured samples, the bits are the decisions taken at the phase
    // with the largest mean distance from it, and Measure then runs with
    // those decisions over the delays within one UI of that phase. A
    // closed eye decided this way reads as nearly closed, not as negative.
    static EyeResult MeasureBlind(const std::vector<double>& wave, int samplesPerBit, size_t ignoreBits);

    // H(d) for one delay; false when the delay has no one or no zero.
    static bool HeightAt(const std::vector<double>& wave, int samplesPerBit, const std::vector<uint8_t>& bits,
                         size_t ignoreBits, int delay, double& height);
};

}  // namespace amihost
