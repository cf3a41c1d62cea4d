// ZeroInputCycle: cycle search on the recurrence's state bits and replay of
// the recorded cycle.
#include "blocks/ZeroInputCycle.h"

#include <algorithm>
#include <cstring>

namespace TesselModelBuilder {

bool ZeroInputCycle::State::operator==(const State& o) const {
    return bits[0] == o.bits[0] && bits[1] == o.bits[1] && bits[2] == o.bits[2] && bits[3] == o.bits[3];
}

ZeroInputCycle::State ZeroInputCycle::Of(const TwoBiquadRecurrence& c) {
    const double values[4] = {c.w1, c.w2, c.v1, c.v2};
    State s;
    std::memcpy(s.bits, values, sizeof values);
    return s;
}

void ZeroInputCycle::Reset() {
    m_bHasCheckpoint = false;
    m_iPeriod = 0;
}

void ZeroInputCycle::Search(TwoBiquadRecurrence& c, double* out, size_t n, size_t& done) {
    if (!m_bHasCheckpoint) {
        m_sCheckpoint = Of(c);
        m_bHasCheckpoint = true;
        m_iLag = 0;
        m_iPower = 1;
    }
    while (done < n) {
        out[done++] = c.Step(0.0);
        const State now = Of(c);
        ++m_iLag;
        if (now == m_sCheckpoint) {
            if (Record(c, m_iLag)) return;
            m_sCheckpoint = now;
            m_iLag = 0;
        } else if (m_iLag == m_iPower) {
            m_sCheckpoint = now;
            m_iLag = 0;
            m_iPower = std::min(2 * m_iPower, kMaxPeriod);
        }
    }
}

// The next `period` steps, computed once on a copy.
bool ZeroInputCycle::Record(const TwoBiquadRecurrence& c, size_t period) {
    TwoBiquadRecurrence r = c;
    double* out = Out();
    for (size_t k = 0; k < period; ++k) {
        out[k] = r.Step(0.0);
        Section0()[k] = r.y;
        double* after = After(k);
        after[0] = r.w1;
        after[1] = r.w2;
        after[2] = r.v1;
        after[3] = r.v2;
    }
    if (!(Of(r) == Of(c))) return false;  // not a cycle after all
    for (size_t k = period; k < kTile; ++k) out[k] = out[k - period];
    m_iPeriod = period;
    m_iPhase = 0;
    return true;
}

void ZeroInputCycle::Run(TwoBiquadRecurrence& c, double* out, size_t n) {
    size_t done = 0;
    if (m_iPeriod != 0) {
        // Replay only from the state the cycle left: anything else means the
        // filter was driven or reset behind our back.
        const double* expected = After((m_iPhase + m_iPeriod - 1) % m_iPeriod);
        const double now[4] = {c.w1, c.w2, c.v1, c.v2};
        if (std::memcmp(expected, now, sizeof now) != 0) Reset();
    }
    if (m_iPeriod == 0) Search(c, out, n, done);
    if (done == n) return;

    const size_t p = m_iPeriod;
    size_t phase = m_iPhase;
    while (done < n) {
        const size_t run = std::min(kTile - phase, n - done);
        std::memcpy(out + done, Out() + phase, run * sizeof(double));
        done += run;
        phase = (phase + run) % p;
    }
    m_iPhase = phase;
    const size_t last = (phase + p - 1) % p;
    const double* after = After(last);
    c.w1 = after[0];
    c.w2 = after[1];
    c.v1 = after[2];
    c.v2 = after[3];
    c.y = Section0()[last];
}

}  // namespace TesselModelBuilder
