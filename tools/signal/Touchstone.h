// Touchstone: network-parameter files (.sNp) of version 1.x and 2.x, as
// channel models are exchanged.
//
// Version 1: "!" comments, one option line "# <unit> S <format> R <ohms>"
// (defaults GHz, MA, 50), then per frequency the frequency and the n x n
// S-matrix as number pairs, spread over as many lines as the writer liked.
// Pairs are RI (real, imaginary), MA (magnitude, degrees) or DB
// (20 log10 magnitude, degrees). Matrices go row by row, except that a
// 2-port is written S11 S21 S12 S22. The port count comes from the name.
// Version 2 adds keywords: [Version], [Number of Ports], [Two-Port Data
// Order] (12_21 or 21_12), [Number of Frequencies], [Reference],
// [Matrix Format] (Full, Lower, Upper), [Network Data], [End].
#pragma once

#include <complex>
#include <string>
#include <vector>

namespace amihost {

struct TouchstoneData {
    int nPorts = 0;
    double dReferenceOhms = 50.0;   // R of the option line (first port's for version 2)
    std::string sVersion = "1.1";
    std::vector<double> vFrequencyHz;                      // strictly increasing
    std::vector<std::vector<std::complex<double>>> vS;     // per frequency, S(i, j) at (i - 1) * nPorts + (j - 1)

    std::complex<double> S(size_t point, int i, int j) const { return vS[point][(i - 1) * nPorts + (j - 1)]; }
};

class Touchstone {
public:
    // Throws HostError(kBadFile) "<file>:<line>: <what is wrong>".
    static TouchstoneData Load(const std::string& path);
    // ports: from the name (PortsFromName); a version 2 file's [Number of
    // Ports] takes precedence.
    static TouchstoneData Parse(const std::string& text, const std::string& origin, int ports);
    // 4 for "x.s4p" (any case), 0 when the name says nothing.
    static int PortsFromName(const std::string& path);
};

}  // namespace amihost
