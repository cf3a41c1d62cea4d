// EyePlot: density eye diagram rasteriser and PNG output.
#include "tools/eye/EyePlot.h"

#include <png.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "tools/base/HostError.h"

namespace amihost {

namespace {

// 5 x 7 glyphs, one byte per row, bit 4 the leftmost column.
const char kGlyphChars[] = " 0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ.-+:=/(),_";
const uint8_t kGlyphs[][7] = {
    {0, 0, 0, 0, 0, 0, 0},
    {0x0E, 0x11, 0x13, 0x15, 0x19, 0x11, 0x0E}, {0x04, 0x0C, 0x04, 0x04, 0x04, 0x04, 0x0E},
    {0x0E, 0x11, 0x01, 0x02, 0x04, 0x08, 0x1F}, {0x1F, 0x02, 0x04, 0x02, 0x01, 0x11, 0x0E},
    {0x02, 0x06, 0x0A, 0x12, 0x1F, 0x02, 0x02}, {0x1F, 0x10, 0x1E, 0x01, 0x01, 0x11, 0x0E},
    {0x06, 0x08, 0x10, 0x1E, 0x11, 0x11, 0x0E}, {0x1F, 0x01, 0x02, 0x04, 0x08, 0x08, 0x08},
    {0x0E, 0x11, 0x11, 0x0E, 0x11, 0x11, 0x0E}, {0x0E, 0x11, 0x11, 0x0F, 0x01, 0x02, 0x0C},
    {0x0E, 0x11, 0x11, 0x1F, 0x11, 0x11, 0x11}, {0x1E, 0x11, 0x11, 0x1E, 0x11, 0x11, 0x1E},
    {0x0E, 0x11, 0x10, 0x10, 0x10, 0x11, 0x0E}, {0x1C, 0x12, 0x11, 0x11, 0x11, 0x12, 0x1C},
    {0x1F, 0x10, 0x10, 0x1E, 0x10, 0x10, 0x1F}, {0x1F, 0x10, 0x10, 0x1E, 0x10, 0x10, 0x10},
    {0x0E, 0x11, 0x10, 0x17, 0x11, 0x11, 0x0F}, {0x11, 0x11, 0x11, 0x1F, 0x11, 0x11, 0x11},
    {0x0E, 0x04, 0x04, 0x04, 0x04, 0x04, 0x0E}, {0x07, 0x02, 0x02, 0x02, 0x02, 0x12, 0x0C},
    {0x11, 0x12, 0x14, 0x18, 0x14, 0x12, 0x11}, {0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x1F},
    {0x11, 0x1B, 0x15, 0x15, 0x11, 0x11, 0x11}, {0x11, 0x11, 0x19, 0x15, 0x13, 0x11, 0x11},
    {0x0E, 0x11, 0x11, 0x11, 0x11, 0x11, 0x0E}, {0x1E, 0x11, 0x11, 0x1E, 0x10, 0x10, 0x10},
    {0x0E, 0x11, 0x11, 0x11, 0x15, 0x12, 0x0D}, {0x1E, 0x11, 0x11, 0x1E, 0x14, 0x12, 0x11},
    {0x0F, 0x10, 0x10, 0x0E, 0x01, 0x01, 0x1E}, {0x1F, 0x04, 0x04, 0x04, 0x04, 0x04, 0x04},
    {0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x0E}, {0x11, 0x11, 0x11, 0x11, 0x11, 0x0A, 0x04},
    {0x11, 0x11, 0x11, 0x15, 0x15, 0x15, 0x0A}, {0x11, 0x11, 0x0A, 0x04, 0x0A, 0x11, 0x11},
    {0x11, 0x11, 0x11, 0x0A, 0x04, 0x04, 0x04}, {0x1F, 0x01, 0x02, 0x04, 0x08, 0x10, 0x1F},
    {0, 0, 0, 0, 0, 0x0C, 0x0C},       {0, 0, 0, 0x1F, 0, 0, 0},
    {0, 0x04, 0x04, 0x1F, 0x04, 0x04, 0}, {0, 0x0C, 0x0C, 0, 0x0C, 0x0C, 0},
    {0, 0, 0x1F, 0, 0x1F, 0, 0},       {0, 0x01, 0x02, 0x04, 0x08, 0x10, 0},
    {0x02, 0x04, 0x08, 0x08, 0x08, 0x04, 0x02}, {0x08, 0x04, 0x02, 0x02, 0x02, 0x04, 0x08},
    {0, 0, 0, 0, 0x0C, 0x04, 0x08},    {0, 0, 0, 0, 0, 0, 0x1F},
};

// Density colour map: black, blue, cyan, yellow, white as t goes 0 .. 1.
void DensityColour(double t, uint8_t& r, uint8_t& g, uint8_t& b) {
    static const double kStops[5][3] = {{20, 20, 40}, {30, 60, 200}, {0, 200, 220}, {250, 230, 40}, {255, 255, 255}};
    const double x = std::min(1.0, std::max(0.0, t)) * 4.0;
    const int i = std::min(3, static_cast<int>(x));
    const double f = x - i;
    r = static_cast<uint8_t>(kStops[i][0] + f * (kStops[i + 1][0] - kStops[i][0]));
    g = static_cast<uint8_t>(kStops[i][1] + f * (kStops[i + 1][1] - kStops[i][1]));
    b = static_cast<uint8_t>(kStops[i][2] + f * (kStops[i + 1][2] - kStops[i][2]));
}

std::string Volts(double v) {
    char buf[32];
    // Keep values that round to zero from printing as "-0.000".
    std::snprintf(buf, sizeof buf, "%+.3f V", std::fabs(v) < 0.0005 ? 0.0 : v);
    return buf;
}

}  // namespace

EyePlot::EyePlot(int width, int height)
    : m_iWidth(std::max(width, 200)), m_iHeight(std::max(height, 150)),
      m_vPixels(static_cast<size_t>(m_iWidth) * m_iHeight * 3, 0) {}

void EyePlot::Fill(int x0, int y0, int x1, int y1, uint8_t r, uint8_t g, uint8_t b) {
    for (int y = std::max(0, y0); y <= std::min(m_iHeight - 1, y1); ++y)
        for (int x = std::max(0, x0); x <= std::min(m_iWidth - 1, x1); ++x) {
            uint8_t* p = &m_vPixels[(static_cast<size_t>(y) * m_iWidth + x) * 3];
            p[0] = r;
            p[1] = g;
            p[2] = b;
        }
}

void EyePlot::Line(int x0, int y0, int x1, int y1, uint8_t r, uint8_t g, uint8_t b) {
    const int steps = std::max(std::abs(x1 - x0), std::abs(y1 - y0));
    for (int s = 0; s <= steps; ++s) {
        const int x = x0 + (steps ? (x1 - x0) * s / steps : 0);
        const int y = y0 + (steps ? (y1 - y0) * s / steps : 0);
        Fill(x, y, x, y, r, g, b);
    }
}

void EyePlot::Text(int x, int y, const std::string& text, int scale, uint8_t r, uint8_t g, uint8_t b) {
    for (char c : text) {
        const char* at = std::strchr(kGlyphChars, std::toupper(static_cast<unsigned char>(c)));
        const uint8_t* glyph = kGlyphs[at != nullptr && c != '\0' ? at - kGlyphChars : 0];
        for (int row = 0; row < 7; ++row)
            for (int col = 0; col < 5; ++col)
                if (glyph[row] & (0x10 >> col))
                    Fill(x + col * scale, y + row * scale, x + col * scale + scale - 1, y + row * scale + scale - 1,
                         r, g, b);
        x += 6 * scale;
    }
}

void EyePlot::Render(const std::vector<double>& wave, int samplesPerBit, const EyeResult& eye, size_t ignoreBits,
                     const std::string& title) {
    const int S = std::max(1, samplesPerBit);
    std::fill(m_vPixels.begin(), m_vPixels.end(), 0);
    Fill(0, 0, m_iWidth - 1, m_iHeight - 1, 12, 12, 18);
    m_nHits = 0;

    // Plot area inside margins for the title and the scales.
    const int left = 100, right = m_iWidth - 20, top = 40, bottom = m_iHeight - 40;
    const int pw = right - left + 1, ph = bottom - top + 1;

    // Traces: bit k spans samples c - S .. c + S around c = k S + delay.
    std::vector<std::pair<size_t, size_t>> traces;
    double lo = 0.0, hi = 0.0;
    bool any = false;
    for (size_t k = ignoreBits;; ++k) {
        const long long c = static_cast<long long>(k) * S + eye.iDelay;
        if (c - S < 0) continue;
        if (static_cast<size_t>(c + S) >= wave.size()) break;
        traces.emplace_back(static_cast<size_t>(c - S), static_cast<size_t>(c + S));
        for (long long i = c - S; i <= c + S; ++i) {
            if (!any || wave[i] < lo) lo = wave[i];
            if (!any || wave[i] > hi) hi = wave[i];
            any = true;
        }
    }
    if (!any || !(hi > lo)) {
        lo -= 0.5;
        hi += 0.5;
    }
    const double pad = 0.08 * (hi - lo);
    lo -= pad;
    hi += pad;
    auto rowOf = [&](double v) { return top + static_cast<int>(std::lround((hi - v) / (hi - lo) * (ph - 1))); };
    auto colOf = [&](double j) { return left + static_cast<int>(std::lround(j / (2.0 * S) * (pw - 1))); };

    std::vector<uint32_t> hits(static_cast<size_t>(pw) * ph, 0);
    for (const auto& t : traces) {
        for (size_t i = t.first; i < t.second; ++i) {
            const int x0 = colOf(static_cast<double>(i - t.first)), x1 = colOf(static_cast<double>(i + 1 - t.first));
            const int y0 = rowOf(wave[i]), y1 = rowOf(wave[i + 1]);
            const int steps = std::max(std::abs(x1 - x0), std::abs(y1 - y0));
            // The segment's far end is the next segment's start: leave it out.
            for (int s = 0; s < std::max(steps, 1); ++s) {
                const int x = x0 + (steps ? (x1 - x0) * s / steps : 0);
                const int y = y0 + (steps ? (y1 - y0) * s / steps : 0);
                if (x < left || x > right || y < top || y > bottom) continue;
                ++hits[static_cast<size_t>(y - top) * pw + (x - left)];
                ++m_nHits;
            }
        }
    }
    const uint32_t most = *std::max_element(hits.begin(), hits.end());
    for (int y = 0; y < ph; ++y)
        for (int x = 0; x < pw; ++x) {
            const uint32_t h = hits[static_cast<size_t>(y) * pw + x];
            uint8_t r, g, b;
            DensityColour(h == 0 ? 0.0 : 0.12 + 0.88 * std::sqrt(static_cast<double>(h) / most), r, g, b);
            Fill(left + x, top + y, left + x, top + y, r, g, b);
        }

    // Overlays: threshold, sampling instant, eye opening.
    const int cx = colOf(static_cast<double>(S));
    for (int x = left; x <= right; x += 6) Fill(x, rowOf(eye.dThreshold), x + 2, rowOf(eye.dThreshold), 150, 150, 150);
    for (int y = top; y <= bottom; y += 6) Fill(cx, y, cx, y + 2, 150, 150, 150);
    const double edge1 = eye.dThreshold + 0.5 * eye.dHeight, edge0 = eye.dThreshold - 0.5 * eye.dHeight;
    const int ya = rowOf(std::max(edge1, edge0)), yb = rowOf(std::min(edge1, edge0));
    if (eye.bOpen)
        Fill(cx - 2, ya, cx + 2, yb, 60, 220, 90);
    else
        Fill(cx - 2, ya, cx + 2, yb, 230, 50, 50);

    // Frame, scales and title.
    Fill(left - 1, top - 1, right + 1, top - 1, 90, 90, 100);
    Fill(left - 1, bottom + 1, right + 1, bottom + 1, 90, 90, 100);
    Fill(left - 1, top - 1, left - 1, bottom + 1, 90, 90, 100);
    Fill(right + 1, top - 1, right + 1, bottom + 1, 90, 90, 100);
    Text(8, top, Volts(hi), 1, 200, 200, 200);
    Text(8, bottom - 7, Volts(lo), 1, 200, 200, 200);
    Text(8, rowOf(eye.dThreshold) - 3, Volts(eye.dThreshold), 1, 150, 150, 150);
    Text(left, bottom + 10, "-1 UI", 1, 200, 200, 200);
    Text(cx - 3, bottom + 10, "0", 1, 200, 200, 200);
    Text(right - 30, bottom + 10, "+1 UI", 1, 200, 200, 200);
    Text(left, 12, title, 2, 235, 235, 235);
}

void EyePlot::WritePng(const std::string& path) const {
    png_image image;
    std::memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(m_iWidth);
    image.height = static_cast<png_uint_32>(m_iHeight);
    image.format = PNG_FORMAT_RGB;
    if (png_image_write_to_file(&image, path.c_str(), 0, m_vPixels.data(), 0, nullptr) == 0) {
        const std::string why = image.message;
        png_image_free(&image);
        throw HostError(ExitCode::kOutputFailed, "cannot write " + path + ": " + why);
    }
}

}  // namespace amihost
