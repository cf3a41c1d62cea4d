// Datasheet: DC gain, peaking, peak frequency and delay per setting.
#include "tools/eye/Datasheet.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <stdexcept>

#include "tools/eye/EyePlot.h"
#include "tools/signal/Fft.h"
#include "tools/signal/PulseResponse.h"

namespace amihost {

namespace {

const double kFlatDb = 1e-6;

double Db(double magnitude) { return 20.0 * std::log10(std::max(magnitude, 1e-300)); }

}  // namespace

DatasheetRow Datasheet::Measure(const std::vector<double>& step, size_t lead, double sampleInterval) {
    if (lead < 1 || step.size() < lead + 16) throw std::invalid_argument("step response too short to measure");
    if (!(sampleInterval > 0.0)) throw std::invalid_argument("sample interval must be positive");
    const std::vector<double> h = PulseResponse::Differentiate(step, lead);
    std::vector<double> padded(h);
    padded.resize(Fft::NextPow2(h.size()), 0.0);
    const std::vector<std::complex<double>> H = Fft::Forward(padded);

    DatasheetRow row;
    row.dBinHz = 1.0 / (static_cast<double>(padded.size()) * sampleInterval);
    const double before = step[lead - 1], final = step.back() - before;
    row.dDcGainDb = Db(std::fabs(final));
    size_t peak = 0;
    row.vMagnitudeDb.reserve(H.size());
    for (size_t k = 0; k < H.size(); ++k) {
        row.vMagnitudeDb.push_back(Db(std::abs(H[k])));
        if (std::abs(H[k]) > std::abs(H[peak])) peak = k;
    }
    row.dPeakingDb = row.vMagnitudeDb[peak] - row.vMagnitudeDb[0];
    // A flat response peaks nowhere; rounding alone must not name a bin.
    row.dPeakHz = row.dPeakingDb < kFlatDb ? 0.0 : static_cast<double>(peak) * row.dBinHz;
    // First crossing of half the final value; prev starts at the sample
    // before the step.
    const double half = 0.5 * final;
    double prev = 0.0;
    for (size_t n = 0; lead + n < step.size(); ++n) {
        const double v = step[lead + n] - before;
        if ((final >= 0.0 && v >= half) || (final < 0.0 && v <= half)) {
            const double frac = v == prev ? 0.0 : (half - prev) / (v - prev);
            // Measured from the input's own 50 % point, half a sample
            // before its first sample at 1 (both edges linear between samples).
            row.dDelayS = (static_cast<double>(n) - 0.5 + frac) * sampleInterval;
            break;
        }
        prev = v;
    }
    return row;
}

std::string Datasheet::Table(const std::string& parameter, const std::vector<DatasheetRow>& rows) {
    char line[160];
    std::snprintf(line, sizeof line, "%8s  %12s  %12s  %14s  %14s\n", parameter.c_str(), "DC gain (dB)",
                  "peaking (dB)", "peak (GHz)", "delay (ps)");
    std::string text = line;
    for (const DatasheetRow& r : rows) {
        std::snprintf(line, sizeof line, "%8s  %12.2f  %12.2f  %14.2f  %14.1f\n", r.sValue.c_str(), r.dDcGainDb,
                      r.dPeakingDb, r.dPeakHz / 1e9, r.dDelayS * 1e12);
        text += line;
    }
    return text;
}

void Datasheet::Plot(const std::string& parameter, const std::vector<DatasheetRow>& rows, double maxHz,
                     const std::string& path) {
    EyePlot canvas(900, 560);
    canvas.Fill(0, 0, canvas.Width() - 1, canvas.Height() - 1, 250, 250, 250);
    const int left = 70, right = canvas.Width() - 130, top = 40, bottom = canvas.Height() - 40;
    double lo = 0.0, hi = 0.0;
    bool any = false;
    for (const DatasheetRow& r : rows)
        for (size_t k = 0; k < r.vMagnitudeDb.size() && k * r.dBinHz <= maxHz; ++k) {
            lo = any ? std::min(lo, r.vMagnitudeDb[k]) : r.vMagnitudeDb[k];
            hi = any ? std::max(hi, r.vMagnitudeDb[k]) : r.vMagnitudeDb[k];
            any = true;
        }
    lo = std::floor(std::max(lo, hi - 60.0) / 5.0) * 5.0;
    hi = std::ceil(hi / 5.0) * 5.0 + (hi == std::ceil(hi / 5.0) * 5.0 ? 5.0 : 0.0);
    auto xOf = [&](double f) { return left + static_cast<int>(std::lround(f / maxHz * (right - left))); };
    auto yOf = [&](double db) {
        return top + static_cast<int>(std::lround((hi - std::max(lo, std::min(hi, db))) / (hi - lo) * (bottom - top)));
    };
    char label[64];
    for (double db = lo; db <= hi + 1e-9; db += 5.0) {
        canvas.Line(left, yOf(db), right, yOf(db), 225, 225, 225);
        std::snprintf(label, sizeof label, "%+.0f DB", db);
        canvas.Text(8, yOf(db) - 3, label, 1, 60, 60, 60);
    }
    const double gridHz = maxHz > 20e9 ? 5e9 : (maxHz > 4e9 ? 2e9 : 0.5e9);
    for (double f = 0.0; f <= maxHz + 1.0; f += gridHz) {
        canvas.Line(xOf(f), top, xOf(f), bottom, 225, 225, 225);
        std::snprintf(label, sizeof label, "%g", f / 1e9);
        canvas.Text(xOf(f) - 6, bottom + 8, label, 1, 60, 60, 60);
    }
    canvas.Text(right - 60, bottom + 22, "FREQUENCY, GHZ", 1, 60, 60, 60);
    for (size_t i = 0; i < rows.size(); ++i) {
        // Hues around the colour wheel, dark enough to read on white.
        const double hue = 6.0 * static_cast<double>(i) / std::max<size_t>(rows.size(), 1);
        const int sector = static_cast<int>(hue) % 6;
        const double f = hue - std::floor(hue);
        const double rgb[6][3] = {{1, f, 0}, {1 - f, 1, 0}, {0, 1, f}, {0, 1 - f, 1}, {f, 0, 1}, {1, 0, 1 - f}};
        const uint8_t r = static_cast<uint8_t>(200 * rgb[sector][0]), g = static_cast<uint8_t>(170 * rgb[sector][1]),
                      b = static_cast<uint8_t>(220 * rgb[sector][2]);
        const DatasheetRow& row = rows[i];
        int px = -1, py = -1;
        for (size_t k = 0; k < row.vMagnitudeDb.size() && k * row.dBinHz <= maxHz; ++k) {
            const int x = xOf(k * row.dBinHz), y = yOf(row.vMagnitudeDb[k]);
            if (px >= 0) canvas.Line(px, py, x, y, r, g, b);
            px = x;
            py = y;
        }
        canvas.Fill(right + 12, top + 14 * static_cast<int>(i), right + 26, top + 14 * static_cast<int>(i) + 2, r, g, b);
        canvas.Text(right + 32, top + 14 * static_cast<int>(i) - 2, parameter + " " + row.sValue, 1, 40, 40, 40);
    }
    canvas.Line(left, top, left, bottom, 60, 60, 60);
    canvas.Line(left, bottom, right, bottom, 60, 60, 60);
    canvas.Text(left, 12, "MAGNITUDE RESPONSE PER " + parameter + " (MEASURED THROUGH AMI_GETWAVE)", 2, 20, 20, 20);
    canvas.WritePng(path);
}

nlohmann::ordered_json Datasheet::Json(const std::vector<DatasheetRow>& rows) {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const DatasheetRow& r : rows)
        list.push_back({{"setting", r.sValue},
                        {"dc_gain_db", r.dDcGainDb},
                        {"peaking_db", r.dPeakingDb},
                        {"peak_hz", r.dPeakHz},
                        {"step_delay_s", r.dDelayS}});
    return list;
}

}  // namespace amihost
