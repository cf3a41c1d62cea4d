// JitterGenerator: resamples a serial-data waveform at jittered instants.
//
// The bit phase is tracked from the zero crossings of the input; once per bit,
// at mid-bit, a timing offset is drawn (Gaussian part scaled by RJ plus a
// uniform part of width DJ), tapered by a raised cosine over the bit so that
// it acts around the transitions, and the output is the input linearly
// interpolated at the displaced instant Latency samples in the past. With
// RJ = DJ = 0 the block is a Latency-sample delay.
#pragma once

#include <cstdint>
#include <vector>

#include "blocks/JitterKernels.h"
#include "blocks/RandomNumberGenerator.h"
#include "blocks/SimdLevel.h"
#include "dataflow/CircularBuffer.h"
#include "dataflow/DFModel.h"

namespace TesselModelBuilder {

class JitterGenerator : public DFModel {
public:
    CircularBuffer<double> input;   // one sample per firing
    CircularBuffer<double> output;  // one sample per firing
    int SamplesPerBit = 16;         // samples in one unit interval, >= 4
    double SampleInterval = 1e-10;  // Ts, seconds between samples
    int m_iHistoryLength = 5;       // W = 2 * Latency + 1, set by Setup
    int Latency = 8;                // L, output delay in samples, 0 .. SamplesPerBit / 2
    double RJ = 0.0;                // random jitter, standard deviation in seconds
    double DJ = 0.0;                // deterministic jitter, peak-to-peak in seconds
    CNormal* m_pNormal = nullptr;   // owned; RJ draws
    CUniform* m_pUniform = nullptr; // owned; DJ draws on [-DJ/2, DJ/2]
    int64_t m_iSampleCount = 0;     // n, samples processed since Initialize
    std::vector<double> m_vSamples; // last W input samples, oldest first
    std::vector<double> m_vTimes;   // their times, seconds (n * Ts)
    std::vector<int> m_vPhases;     // their bit phases
    std::vector<double> m_vJitters; // offset in force when each was taken, seconds
    double m_dPrevSample = 0.0;     // x[n-1], for the sign-change test
    int m_iBitPhase = 0;            // position in the current bit, 0 .. SamplesPerBit - 1
    double m_dJitter = 0.0;         // offset of the current bit, seconds

    JitterGenerator() = default;
    // The generators are owned through raw pointers: no copies.
    JitterGenerator(const JitterGenerator&) = delete;
    JitterGenerator& operator=(const JitterGenerator&) = delete;
    ~JitterGenerator() override;

    bool Setup() override;
    bool Initialize() override;
    bool Run() override;
    bool Finalize() override;

    // n firings at once: in[i] is the input of firing i, out[i] its output.
    // The same bits as Run and the same state afterwards (draws owed to the
    // generators included, see SettleDraws); without jitter the bit phase is
    // counted through whole runs and settled values skip the interpolation.
    // Returns false, touching nothing, where Run would fail.
    // The level only chooses how many outputs are interpolated side by side.
    bool RunBlock(const double* in, double* out, size_t n, SimdLevel level);
    // The block at rest, for a caller that interpolates itself (see
    // AtRestDelay): true when no jitter offset is in force and the next n
    // firings keep their instants exact and increasing. Advance then leaves
    // the state that n firings with inputs in[0..n) leave, outputs aside
    // (the output port included).
    bool CanRunAtRest(size_t n) const;
    AtRestDelay AtRest() const;
    void Advance(const double* in, size_t n, SimdLevel level);

    // Takes the draws still owed to the generators. Without RJ and DJ the
    // offsets do not depend on the draws, so they are only counted; call
    // this before reading the generators directly.
    void SettleDraws();

private:
    // RunBlock's three steps: BeginBlock does everything but the
    // interpolation (the block's state is final after it),
    // ResampleBlockRange(from, to) computes out[from..to), EndBlock sets the
    // output port.
    bool BeginBlock(const double* in, double* out, size_t n, SimdLevel level);
    void ResampleBlockRange(size_t from, size_t to);
    void EndBlock();
    bool IsReady() const;
    // Bit phase and, at mid-bit, a new jitter offset for input sample x.
    void Track(double x);
    // The offset of a new bit: N(0,1) RJ + U(-DJ/2, DJ/2), clamped to ±Ts (L - 1).
    double DrawJitter();
    // True when every offset is, and stays, +0.0 (no RJ, no DJ).
    bool HasNoJitter() const;
    static size_t AdvancePhase(const double* x, size_t n, double& prev, int& phase, int SPB, int mid,
                               SimdLevel level);
    // Outputs at the end of a block that settled on one value, filled in.
    size_t SettledFrom(const double* s, size_t W, int64_t n0, size_t n, double* out) const;
    // AtRestDelay's fallback: firing n from its window of samples.
    static double RestingOutput(const void* context, int64_t n, const double* window);
    // Block-path fallback: firing i of the flat history in `context`.
    static void ResampleOne(void* context, size_t i);
    // The output of firing n from a history window of W entries, oldest first.
    double Resample(int64_t n, const double* samples, const double* times, const int* phases,
                    const double* jitters) const;

    uint64_t m_iOwedDraws = 0;  // draws counted but not yet taken (see SettleDraws)
    bool m_bNoDeterministicJitter = false;  // the uniform generator was made for DJ = 0
    // The block between BeginBlock and EndBlock.
    int64_t m_iBlockFirst = 0;        // sample count of its first firing
    double* m_pBlockOut = nullptr;
    size_t m_iBlockLength = 0;
    size_t m_iBlockToResample = 0;    // outputs from here on were filled in (a settled tail)
    SimdLevel m_eBlockLevel = SimdLevel::Scalar;

    // Block-path scratch: the history followed by the block, laid out flat.
    std::vector<double> m_vBlockSamples;
    std::vector<double> m_vBlockTimes;
    std::vector<int> m_vBlockPhases;
    std::vector<double> m_vBlockJitters;
    // RestingOutput's window instants, phases and offsets.
    mutable std::vector<double> m_vRestTimes;
    mutable std::vector<int> m_vRestPhases;
    mutable std::vector<double> m_vRestJitters;
};

}  // namespace TesselModelBuilder
