// EyePlot: eye diagram of an NRZ waveform as an RGB image, written as PNG
// with libpng.
//
// Every bit's trace from one UI before to one UI after its sampling instant
// (the best delay of the eye measurement) is drawn into a hit-count raster,
// which is shown as a density map: dark where few traces pass, bright where
// many do. Overlays: the decision threshold, the sampling instant, and a bar
// spanning the eye opening there (green when open, red where the edges
// overlap). A title line and the voltage and time scales are printed with a
// built-in 5 x 7 pixel font.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/eye/EyeMetrics.h"

namespace amihost {

class EyePlot {
public:
    EyePlot(int width = 720, int height = 480);

    void Render(const std::vector<double>& wave, int samplesPerBit, const EyeResult& eye, size_t ignoreBits,
                const std::string& title);

    int Width() const { return m_iWidth; }
    int Height() const { return m_iHeight; }
    // Row-major RGB, 3 bytes per pixel.
    const std::vector<uint8_t>& Pixels() const { return m_vPixels; }
    // Total trace hits drawn (0 when there was nothing to draw).
    size_t Hits() const { return m_nHits; }

    // Throws HostError(kOutputFailed) when the file cannot be written.
    void WritePng(const std::string& path) const;

    // Drawing primitives, also for the other plots of the host (datasheet,
    // statistical eye): a filled rectangle (corners included, clipped), a
    // line, and text in the built-in font (scale 1: 5 x 7 pixels a glyph).
    void Fill(int x0, int y0, int x1, int y1, uint8_t r, uint8_t g, uint8_t b);
    void Line(int x0, int y0, int x1, int y1, uint8_t r, uint8_t g, uint8_t b);
    void Text(int x, int y, const std::string& text, int scale, uint8_t r, uint8_t g, uint8_t b);

private:

    int m_iWidth, m_iHeight;
    std::vector<uint8_t> m_vPixels;
    size_t m_nHits = 0;
};

}  // namespace amihost
