// ProgressBar: a one-line progress bar on standard error for long runs.
// It draws only when standard error is a terminal and only once the run has
// taken more than a second, so short runs and redirected output stay clean.
// Workers advance Counter(); a drawing thread polls it ten times a second.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <thread>

namespace amihost {

class ProgressBar {
public:
    // total: the count at which the run is complete. enabled false (or a
    // standard error that is no terminal) draws nothing.
    ProgressBar(size_t total, std::string label, bool enabled);
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    std::atomic<size_t>& Counter() { return m_nDone; }
    // Stops drawing and clears the bar's line.
    void Finish();

    // The text of the bar for a fraction done (0 .. 1) and the seconds spent.
    static std::string Line(const std::string& label, double fraction, double seconds, int width);

private:
    void Loop();

    size_t m_nTotal;
    std::string m_sLabel;
    std::atomic<size_t> m_nDone{0};
    std::chrono::steady_clock::time_point m_tStart;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_bStop = false;
    bool m_bDrawn = false;
    std::thread m_thread;
};

}  // namespace amihost
