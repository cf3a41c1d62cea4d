// ChannelResponse: from S-parameters to the impulse response a waveform is
// convolved with.
//
// 1. The through transfer H(f): S21 of a 2-port, or of a 4-port (or wider)
//    the differential SDD21 of the chosen pairing, with input pair (p1, n1)
//    and output pair (p2, n2):
//        SDD21 = (S(p2,p1) - S(p2,n1) - S(n2,p1) + S(n2,n1)) / 2.
//    "13-24" pairs ports 1/3 at the input and 2/4 at the output (odd ports
//    at the near end), "12-34" pairs 1/2 and 3/4. A receiver whose input
//    resistance r (per leg) differs from the reference Z0 reflects
//    G = (r - Z0) / (r + Z0), and the voltage it sees becomes
//        H (1 + G) / (1 - S22 G)        (S22: SDD22 for a pair).
// 2. Onto the grid f_k = k / (N T), k = 0 .. N/2: magnitude and unwrapped
//    phase are interpolated linearly (interpolating them rather than real and
//    imaginary parts keeps the group delay, hence the response causal). Below
//    the first frequency the magnitude holds and the phase runs linearly to
//    0 at DC, after the unwrapped phase has been shifted by whole turns so
//    that its extrapolation to DC lies within half a turn of 0. Above the
//    last frequency H is 0.
// 3. A raised-cosine taper over the top fifth of the band (the last data
//    frequency or the Nyquist frequency, whichever is lower) keeps the cut
//    from ringing.
// 4. h[n] = IFFT(H)[n]: the response to a one-sample unit pulse, so that
//    y = h * x for a waveform x sampled at T (sum h = H(0)). Band-limiting
//    spreads every edge of h to both sides, so the last samples of the
//    circular result belong before t = 0; the first of the taps returned are
//    those precursors (10 periods of the top frequency), then h from t = 0.
#pragma once

#include <complex>
#include <string>
#include <vector>

#include "tools/signal/Touchstone.h"

namespace amihost {

struct PortPairing {
    int iInP = 1, iInN = 3, iOutP = 2, iOutN = 4;   // 1-based ports
};

class ChannelResponse {
public:
    // "13-24", "12-34", or "a,b-c,d" for wider networks. Throws
    // HostError(kBadParameter).
    static PortPairing ParsePorts(const std::string& text);
    // H at each data frequency, into terminationOhms per leg (0: matched).
    // Throws HostError(kBadFile) when the pairing names a port the network
    // lacks, or the network has one port or three.
    static std::vector<std::complex<double>> Through(const TouchstoneData& data, const PortPairing& ports,
                                                     double terminationOhms = 0.0);
    // Step 2 and 3 on N/2 + 1 bins of width binHz.
    static std::vector<std::complex<double>> OnGrid(const std::vector<double>& frequencyHz,
                                                    const std::vector<std::complex<double>>& H, double binHz,
                                                    size_t bins, double bandHz);
    // Step 4, N chosen for a span of at least max(1 / data step, 20 ns);
    // trailing samples below 1e-9 of the peak are dropped. precursors: how
    // many of the taps lie before t = 0.
    static std::vector<double> Impulse(const std::vector<double>& frequencyHz,
                                       const std::vector<std::complex<double>>& H, double sampleInterval,
                                       size_t& precursors);
};

}  // namespace amihost
