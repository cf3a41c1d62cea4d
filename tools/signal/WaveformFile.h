// WaveformFile: waveforms as text. Input: one sample per line, or CSV whose
// last column is the waveform and, with two or more columns, whose first is
// the time in seconds. Blank lines, lines starting with "#" and a header
// line of names are skipped. Output: CSV with time, input and output.
#pragma once

#include <string>
#include <vector>

namespace amihost {

struct Waveform {
    std::vector<double> vValues;   // volts
    bool bHasTime = false;         // the file had a time column
    double dTimeStep = 0.0;        // its uniform step, seconds (when bHasTime)
};

class WaveformFile {
public:
    // Throws HostError(kBadFile) naming the file, the line and the reason:
    // unreadable, empty, a cell that is no number, a changing column count,
    // or times that are not evenly spaced and increasing.
    static Waveform Read(const std::string& path);
    // The same on text already read; path names it in messages.
    static Waveform Parse(const std::string& text, const std::string& path);

    // time_s,input_V,output_V, one row per sample, times n * sampleInterval.
    // Throws HostError(kOutputFailed).
    static void Write(const std::string& path, double sampleInterval, const std::vector<double>& input,
                      const std::vector<double>& output);
};

}  // namespace amihost
