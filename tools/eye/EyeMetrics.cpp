// EyeMetrics: data-aided eye opening (inner eye edges over all bits).
#include "tools/eye/EyeMetrics.h"

#include <cmath>
#include <limits>
#include <stdexcept>

namespace amihost {

namespace {

struct Edges {
    double dMin1 = std::numeric_limits<double>::infinity();    // lowest one sample
    double dMax0 = -std::numeric_limits<double>::infinity();   // highest zero sample
    double dSum1 = 0.0, dSum0 = 0.0;
    size_t n1 = 0, n0 = 0;
};

// Bits measured when locating the alignment (see Search).
const size_t kCoarseBits = 1024;

// Inner edges at one delay over bits ignoreBits .. endBit - 1.
Edges Scan(const std::vector<double>& wave, int S, const std::vector<uint8_t>& bits, size_t ignoreBits,
           size_t endBit, int delay) {
    Edges e;
    if (delay < 0) return e;
    const size_t n = wave.size();
    for (size_t k = ignoreBits; k < endBit && k < bits.size(); ++k) {
        const size_t i = k * static_cast<size_t>(S) + static_cast<size_t>(delay);
        if (i >= n) break;
        const double y = wave[i];
        if (bits[k]) {
            if (y < e.dMin1) e.dMin1 = y;
            e.dSum1 += y;
            ++e.n1;
        } else {
            if (y > e.dMax0) e.dMax0 = y;
            e.dSum0 += y;
            ++e.n0;
        }
    }
    return e;
}

bool HeightOver(const std::vector<double>& wave, int S, const std::vector<uint8_t>& bits, size_t ignoreBits,
                size_t endBit, int delay, double& height) {
    const Edges e = Scan(wave, S, bits, ignoreBits, endBit, delay);
    if (e.n1 == 0 || e.n0 == 0) return false;
    height = e.dMin1 - e.dMax0;
    return true;
}

// The first delay of [first, last] with the largest height over the bits
// before endBit; false when none has both ones and zeros.
bool BestDelay(const std::vector<double>& wave, int S, const std::vector<uint8_t>& bits, size_t ignoreBits,
               size_t endBit, int first, int last, int& best, double& bestHeight) {
    bool found = false;
    for (int d = first; d <= last; ++d) {
        double h;
        if (!HeightOver(wave, S, bits, ignoreBits, endBit, d, h)) continue;
        if (!found || h > bestHeight) {
            found = true;
            best = d;
            bestHeight = h;
        }
    }
    return found;
}

// Best delay within [first, last] and the eye around it. A long search
// range is covered in two steps, so that its cost does not grow with range
// times length: every delay over the first kCoarseBits measured bits finds
// the alignment, then every delay within one UI of it is measured over all
// bits.
EyeResult Search(const std::vector<double>& wave, int S, const std::vector<uint8_t>& bits, size_t ignoreBits,
                 int first, int last) {
    if (S < 1) throw std::invalid_argument("samples per bit must be at least 1");
    const size_t all = bits.size();
    int best = first;
    double bestHeight = 0.0;
    bool found;
    if (last - first > 2 * S && all > ignoreBits + kCoarseBits) {
        int coarse = first;
        double coarseHeight = 0.0;
        found = BestDelay(wave, S, bits, ignoreBits, ignoreBits + kCoarseBits, first, last, coarse, coarseHeight) &&
                BestDelay(wave, S, bits, ignoreBits, all, std::max(first, coarse - S), std::min(last, coarse + S),
                          best, bestHeight);
    } else {
        found = BestDelay(wave, S, bits, ignoreBits, all, first, last, best, bestHeight);
    }
    if (!found) throw std::invalid_argument("the waveform is too short to measure an eye (no ones and zeros to compare)");

    EyeResult r;
    const Edges e = Scan(wave, S, bits, ignoreBits, all, best);
    r.dHeight = bestHeight;
    r.bOpen = bestHeight > 0.0;
    r.iDelay = best;
    r.dPhaseUI = static_cast<double>(best % S) / S;
    r.dThreshold = 0.5 * (e.dMin1 + e.dMax0);
    r.dLevel1 = e.dSum1 / static_cast<double>(e.n1);
    r.dLevel0 = e.dSum0 / static_cast<double>(e.n0);
    r.nBits = e.n1 + e.n0;

    // Open delays on either side of the best, one UI at most in all.
    int open = r.bOpen ? 1 : 0;
    if (r.bOpen) {
        double h;
        for (int d = best - 1; d >= first && open < S && EyeMetrics::HeightAt(wave, S, bits, ignoreBits, d, h) && h > 0.0; --d)
            ++open;
        for (int d = best + 1; d <= last && open < S && EyeMetrics::HeightAt(wave, S, bits, ignoreBits, d, h) && h > 0.0; ++d)
            ++open;
    }
    r.dWidthUI = static_cast<double>(open) / S;
    return r;
}

}  // namespace

bool EyeMetrics::HeightAt(const std::vector<double>& wave, int samplesPerBit, const std::vector<uint8_t>& bits,
                          size_t ignoreBits, int delay, double& height) {
    return HeightOver(wave, samplesPerBit, bits, ignoreBits, bits.size(), delay, height);
}

EyeResult EyeMetrics::Measure(const std::vector<double>& wave, int samplesPerBit, const std::vector<uint8_t>& bits,
                              size_t ignoreBits, int maxDelay, int firstDelay) {
    return Search(wave, samplesPerBit, bits, ignoreBits, firstDelay, maxDelay - 1);
}

EyeResult EyeMetrics::MeasureBlind(const std::vector<double>& wave, int samplesPerBit, size_t ignoreBits) {
    const int S = samplesPerBit;
    if (S < 1) throw std::invalid_argument("samples per bit must be at least 1");
    const size_t nBits = wave.size() / static_cast<size_t>(S);
    if (nBits <= ignoreBits + 1) throw std::invalid_argument("the waveform is too short to measure an eye");

    double sum = 0.0;
    for (size_t i = ignoreBits * S; i < nBits * S; ++i) sum += wave[i];
    const double threshold = sum / static_cast<double>((nBits - ignoreBits) * S);

    int phase = 0;
    double bestSpread = -1.0;
    for (int p = 0; p < S; ++p) {
        double spread = 0.0;
        for (size_t k = ignoreBits; k < nBits; ++k) spread += std::fabs(wave[k * S + p] - threshold);
        if (spread > bestSpread) {
            bestSpread = spread;
            phase = p;
        }
    }
    // Bit k is decided one UI after its own phase, so that the delays up to a
    // UI before the decision instant stay non-negative.
    const int centre = phase + S;
    std::vector<uint8_t> bits(nBits - 1);
    for (size_t k = 0; k + 1 < nBits; ++k) bits[k] = wave[k * S + centre] > threshold ? 1 : 0;
    return Search(wave, S, bits, ignoreBits, centre - S, centre + S);
}

}  // namespace amihost
