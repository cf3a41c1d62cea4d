// ZeroInputCycle: the two-biquad recurrence under a run of exact zero input.
//
// After activity, zero input drives the state down into subnormals, where it
// ends at a fixed point or a short cycle (periods up to a few dozen) that it
// never leaves: the rounding of the tiny values keeps it alive. Computing
// there is pure cost, and subnormal arithmetic is slow on many processors.
// Once the state repeats bit for bit, the recorded steps of the cycle are
// replayed instead: the recurrence is a pure function of its state bits, so
// the replay gives exactly the bits that computing would, state included.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "blocks/BiquadCascade.h"

namespace TesselModelBuilder {

class ZeroInputCycle {
public:
    static constexpr size_t kMaxPeriod = 64;  // longer cycles are simply computed
    static constexpr size_t kTile = 512;      // replayed outputs copied per run

    // Allocates the tables, so that Run itself never allocates.
    void Reserve() { m_vTables.resize(kTile + 5 * kMaxPeriod); }
    // Forget the cycle: the input was not zero, or the state changed elsewhere.
    void Reset();
    // n steps of cascade.Step(+0.0), outputs to out[0..n): the same outputs
    // and the same cascade afterwards (state and section-0 output), bit for
    // bit. Reserve first.
    void Run(TwoBiquadRecurrence& cascade, double* out, size_t n);
    // The period found, or 0 while still searching.
    size_t Period() const { return m_iPeriod; }

private:
    struct State {
        uint64_t bits[4];  // w1, w2, v1, v2
        bool operator==(const State& o) const;
    };
    static State Of(const TwoBiquadRecurrence& c);

    // Search: the state at a checkpoint against each later one, the checkpoint
    // moving on after 1, 2, 4, ... kMaxPeriod steps (Brent's cycle finding).
    void Search(TwoBiquadRecurrence& c, double* out, size_t n, size_t& done);
    bool Record(const TwoBiquadRecurrence& c, size_t period);

    bool m_bHasCheckpoint = false;
    State m_sCheckpoint{};
    size_t m_iLag = 0;
    size_t m_iPower = 1;

    // The cycle: step k gives output Out()[k] and section-0 output
    // Section0()[k], and leaves the state After(k). Kept on the heap so that
    // the model that holds this stays small.
    double* Out() { return m_vTables.data(); }  // kTile: step k mod the period
    double* Section0() { return Out() + kTile; }
    double* After(size_t k) { return Section0() + kMaxPeriod + 4 * k; }  // w1 w2 v1 v2

    size_t m_iPeriod = 0;
    size_t m_iPhase = 0;  // the next step of the cycle
    std::vector<double> m_vTables;
};

}  // namespace TesselModelBuilder
