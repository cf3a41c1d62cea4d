// Datasheet: what each equalizer setting does, measured through AMI_GetWave
// as a user's simulator would see it. For every setting a unit step is
// streamed through a fresh instance (PulseResponse::ModelStep); from the
// step response y and its difference h:
//
//   DC gain    20 log10 |y_end - y_before|             (dB; y settled at the end)
//   H(f)       the FFT of h, bins k / (N T)
//   peaking    20 log10 (max_f |H(f)| / |H(0)|)         (dB over DC)
//   peak       the frequency of that maximum            (Hz; 0 when DC is the maximum)
//   delay      time from the step to 50 % of its final value, linear
//              between samples                          (s)
#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace amihost {

struct DatasheetRow {
    std::string sValue;              // the setting, as swept
    double dDcGainDb = 0.0;
    double dPeakingDb = 0.0;
    double dPeakHz = 0.0;
    double dDelayS = 0.0;
    std::vector<double> vMagnitudeDb;  // |H| in dB at bins 0 .. N/2
    double dBinHz = 0.0;               // 1 / (N T)
};

class Datasheet {
public:
    // The row for one step response whose step starts at sample `lead`
    // (>= 1, with at least 16 samples after it); sampleInterval in s.
    // Throws std::invalid_argument otherwise.
    static DatasheetRow Measure(const std::vector<double>& step, size_t lead, double sampleInterval);

    // The printed table, one line per row, headed by the parameter name.
    static std::string Table(const std::string& parameter, const std::vector<DatasheetRow>& rows);
    // Every row's magnitude response from DC to maxHz in one PNG.
    static void Plot(const std::string& parameter, const std::vector<DatasheetRow>& rows, double maxHz,
                     const std::string& path);
    static nlohmann::ordered_json Json(const std::vector<DatasheetRow>& rows);
};

}  // namespace amihost
