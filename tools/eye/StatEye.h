// StatEye: the statistical eye of an NRZ link from its pulse response, by
// convolving probability densities (the peak-distortion idea carried to the
// whole distribution).
//
// With pulse response p (volts per volt, one sample per T), S samples per
// UI, levels +/-A and equiprobable independent bits, the sample taken phi
// samples after the main cursor m = argmax p is
//
//     v = b_0 A p[m + phi] + sum_{k != 0} b_k A p[m + phi + k S],   b_k = +/-1,
//
// so the density of v given b_0 = 1 is the main cursor shifted by the
// convolution of the two-point densities {+/- A p[m + phi + k S]}, each
// 1/2. Gaussian noise (sigma_v) convolves each column in voltage; Gaussian
// random jitter (sigma_t) mixes neighbouring columns with Gaussian weights.
// By symmetry the density given b_0 = -1 is the mirror image, so the
// decision threshold is 0 and
//
//     BER(phi) = P(v < 0 | b_0 = 1)                    (the bathtub)
//     upper_L(phi) = the v with P(v' < v | b_0 = 1) = L, lower_L = -upper_L
//
// The eye at BER L is open where upper_L > 0; its height is the largest
// upper_L - lower_L and its width the number of phases with BER < L, in UI.
// Densities live on a symmetric voltage grid; a shift that falls between
// bins is split linearly between the two neighbours.
#pragma once

#include <vector>

namespace amihost {

struct StatEyeSettings {
    int iSamplesPerBit = 0;
    double dSampleInterval = 0.0;   // s
    double dAmplitude = 0.5;        // NRZ levels +/- this, V
    double dNoiseRms = 0.0;         // V at the sampler
    double dRjRms = 0.0;            // s
    int iBins = 2048;               // voltage bins
    std::vector<double> vLevels = {1e-6, 1e-9, 1e-12};
};

struct StatEyeContour {
    double dBer = 0.0;
    std::vector<double> vUpper;     // per phase, V (<= 0 where the eye is closed)
    double dHeight = 0.0;           // V, <= 0 when closed at every phase
    double dWidthUI = 0.0;
};

struct StatEyeResult {
    double dMainCursor = 0.0;                  // A p[m], V
    std::vector<double> vPhaseUI;              // per column, -0.5 .. 0.5 around the main cursor
    std::vector<double> vBathtub;              // BER per column
    std::vector<double> vVolts;                // bin centres, V
    std::vector<std::vector<double>> vDensity; // per column: density of a 1 (probability per bin)
    std::vector<StatEyeContour> vContours;     // one per level
};

class StatEye {
public:
    // Throws std::invalid_argument for an empty or all-zero pulse or bad settings.
    static StatEyeResult Compute(const std::vector<double>& pulse, const StatEyeSettings& settings);
};

}  // namespace amihost
