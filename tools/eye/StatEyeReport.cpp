// StatEyeReport: statistical eye picture, JSON and summary lines.
#include "tools/eye/StatEyeReport.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "tools/eye/EyePlot.h"

namespace amihost {

namespace {

const double kFloorLog = -16.0;  // the picture's lowest probability, log10

double Log(double p) { return p > 0.0 ? std::max(kFloorLog, std::log10(p)) : kFloorLog; }

}  // namespace

void StatEyeReport::WritePng(const StatEyeResult& eye, const std::string& title, const std::string& path) {
    EyePlot canvas(760, 640);
    canvas.Fill(0, 0, canvas.Width() - 1, canvas.Height() - 1, 12, 12, 18);
    const int left = 90, right = canvas.Width() - 20, top = 40, bottom = 400, btop = 440, bbottom = 600;
    const size_t cols = eye.vDensity.size();
    const size_t B = eye.vVolts.size();
    if (cols == 0 || B == 0) return;
    // The plotted voltage range: where anything above the floor lies.
    double lo = eye.vVolts.back(), hi = eye.vVolts.front();
    for (const auto& col : eye.vDensity)
        for (size_t b = 0; b < B; ++b)
            if (col[b] > 1e-16 || col[B - 1 - b] > 1e-16) {
                lo = std::min(lo, -std::fabs(eye.vVolts[b]));
                hi = std::max(hi, std::fabs(eye.vVolts[b]));
            }
    if (!(hi > lo)) return;
    auto yOf = [&](double v) { return top + static_cast<int>(std::lround((hi - v) / (hi - lo) * (bottom - top))); };
    auto xOf = [&](double c) { return left + static_cast<int>(std::lround(c / cols * (right - left))); };
    const double dv = eye.vVolts[1] - eye.vVolts[0];
    for (int y = top; y <= bottom; ++y)
        for (size_t c = 0; c < cols; ++c) {
            const double v = hi - (y - top) * (hi - lo) / (bottom - top);
            const long b = std::lround((v - eye.vVolts[0]) / dv);
            if (b < 0 || b >= static_cast<long>(B)) continue;
            // Both bits: a 1's density and the mirror image for a 0.
            const double p = 0.5 * (eye.vDensity[c][b] + eye.vDensity[c][B - 1 - b]);
            const double t = (Log(p) - kFloorLog) / -kFloorLog;
            if (p <= 0.0) continue;
            canvas.Fill(xOf(c), y, xOf(c + 1) - 1, y, static_cast<uint8_t>(40 + 215 * t),
                        static_cast<uint8_t>(60 + 150 * t * t), static_cast<uint8_t>(160 * (1 - t) + 40));
        }
    const uint8_t colours[3][3] = {{80, 230, 90}, {250, 200, 40}, {250, 70, 70}};
    for (size_t k = 0; k < eye.vContours.size(); ++k) {
        const uint8_t* rgb = colours[k % 3];
        for (size_t c = 0; c < cols; ++c) {
            const double u = eye.vContours[k].vUpper[c];
            if (u <= 0.0) continue;
            canvas.Fill(xOf(c), yOf(u) - 1, xOf(c + 1) - 1, yOf(u), rgb[0], rgb[1], rgb[2]);
            canvas.Fill(xOf(c), yOf(-u), xOf(c + 1) - 1, yOf(-u) + 1, rgb[0], rgb[1], rgb[2]);
        }
        char label[64];
        std::snprintf(label, sizeof label, "BER %.0e", eye.vContours[k].dBer);
        canvas.Text(right - 90, top + 6 + 12 * static_cast<int>(k), label, 1, rgb[0], rgb[1], rgb[2]);
    }
    // Bathtub.
    auto byOf = [&](double lg) { return btop + static_cast<int>(std::lround(-lg / -kFloorLog * (bbottom - btop))); };
    for (double lg = 0; lg >= kFloorLog; lg -= 3) {
        canvas.Line(left, byOf(lg), right, byOf(lg), 50, 50, 60);
        char label[16];
        std::snprintf(label, sizeof label, "1E%+.0f", lg);
        canvas.Text(20, byOf(lg) - 3, label, 1, 180, 180, 180);
    }
    for (size_t c = 0; c + 1 < cols; ++c)
        canvas.Line(xOf(c + 0.5), byOf(Log(eye.vBathtub[c])), xOf(c + 1.5), byOf(Log(eye.vBathtub[c + 1])), 120,
                    200, 255);
    char label[32];
    std::snprintf(label, sizeof label, "%+.3f V", hi);
    canvas.Text(8, top, label, 1, 200, 200, 200);
    std::snprintf(label, sizeof label, "%+.3f V", lo);
    canvas.Text(8, bottom - 7, label, 1, 200, 200, 200);
    canvas.Text(left, bottom + 10, "-0.5 UI", 1, 200, 200, 200);
    canvas.Text(right - 42, bottom + 10, "+0.5 UI", 1, 200, 200, 200);
    canvas.Text(left, btop - 14, "BATHTUB: BER AT THRESHOLD 0 V", 1, 200, 200, 200);
    canvas.Text(left, 12, title, 2, 235, 235, 235);
    canvas.WritePng(path);
}

nlohmann::ordered_json StatEyeReport::Json(const StatEyeResult& eye, const StatEyeSettings& st) {
    nlohmann::ordered_json contours = nlohmann::ordered_json::array();
    for (const StatEyeContour& c : eye.vContours) {
        std::vector<double> lower;
        for (double u : c.vUpper) lower.push_back(-u);
        contours.push_back({{"ber", c.dBer},
                            {"height_v", c.dHeight},
                            {"width_ui", c.dWidthUI},
                            {"upper_v", c.vUpper},
                            {"lower_v", lower}});
    }
    return {{"amplitude_v", st.dAmplitude},
            {"noise_rms_v", st.dNoiseRms},
            {"rj_rms_s", st.dRjRms},
            {"main_cursor_v", eye.dMainCursor},
            {"phase_ui", eye.vPhaseUI},
            {"bathtub_ber", eye.vBathtub},
            {"contours", contours}};
}

std::string StatEyeReport::Lines(const StatEyeResult& eye) {
    std::string text;
    char line[128];
    for (const StatEyeContour& c : eye.vContours) {
        std::snprintf(line, sizeof line, "BER %.0e: height %.4f V, width %.3f UI%s\n", c.dBer, c.dHeight, c.dWidthUI,
                      c.dHeight > 0.0 ? "" : " (closed)");
        text += line;
    }
    return text;
}

}  // namespace amihost
