// ProgressBar: terminal progress display on a helper thread.
#include "tools/base/ProgressBar.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace amihost {

ProgressBar::ProgressBar(size_t total, std::string label, bool enabled)
    : m_nTotal(std::max<size_t>(total, 1)), m_sLabel(std::move(label)), m_tStart(std::chrono::steady_clock::now()) {
    if (enabled && ::isatty(STDERR_FILENO) == 1) m_thread = std::thread(&ProgressBar::Loop, this);
}

ProgressBar::~ProgressBar() { Finish(); }

std::string ProgressBar::Line(const std::string& label, double fraction, double seconds, int width) {
    fraction = std::min(1.0, std::max(0.0, fraction));
    const int filled = static_cast<int>(fraction * width);
    std::string bar = label + " [" + std::string(filled, '#') + std::string(width - filled, '.') + "]";
    char tail[48];
    std::snprintf(tail, sizeof tail, " %3d%%  %.1f s", static_cast<int>(fraction * 100.0), seconds);
    return bar + tail;
}

void ProgressBar::Loop() {
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_wake.wait_for(lock, std::chrono::milliseconds(100), [this] { return m_bStop; })) {
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - m_tStart).count();
        if (seconds < 1.0) continue;
        const double fraction = static_cast<double>(m_nDone.load(std::memory_order_relaxed)) / m_nTotal;
        std::fprintf(stderr, "\r%s", Line(m_sLabel, fraction, seconds, 40).c_str());
        std::fflush(stderr);
        m_bDrawn = true;
    }
}

void ProgressBar::Finish() {
    if (!m_thread.joinable()) return;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_bStop = true;
    }
    m_wake.notify_all();
    m_thread.join();
    if (m_bDrawn) {
        std::fprintf(stderr, "\r\033[K");
        std::fflush(stderr);
    }
}

}  // namespace amihost
