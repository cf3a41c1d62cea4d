// FusedKernels: the receiver's live branch (the CTLE recurrence, the delay
// block without jitter, the FIR) as one software pipeline.
//
// The two-biquad recurrence is bound by the latency of its own arithmetic and
// leaves the core's vector units idle; the delay's interpolation and the FIR
// sums are bound by those units (and the divider) and do not depend on the
// recurrence's latest samples. One pass of the loop therefore computes the
// interpolation of group t - 1 in one burst and then steps the recurrence of
// group t with the FIR sums of group t - 2 interleaved, so that the
// out-of-order core runs the sums beside the recurrence's chain. The
// arithmetic of each is exactly that of its per-sample form.
#pragma once

#include <cstddef>
#include <cstdint>

#include "blocks/BiquadCascade.h"
#include "blocks/JitterKernels.h"
#include "blocks/SimdLevel.h"

namespace TesselModelBuilder {

// Samples, delay outputs and FIR outputs share one index: sample i enters
// the recurrence from x[i] and leaves it in s[i]; delay output i goes to
// f[i] (firing `firing + i`) and reads s up to s[i]; FIR output i goes to
// out[i] and reads f[i - T + 1 .. i]. Pointers may be offset so that only a
// window of each array is held in memory.
//
// The delay outputs are held N times (N the level's lanes, PipelineLanes):
// copy j holds output i at f[i + j * shift], copy 0 being f itself. For tap
// k the FIR sums of a group read vectors of N outputs that start k places
// before an N-aligned index; an unaligned vector load that crosses a cache
// line costs the core a second load, and with every tap reading such vectors
// those loads, not the arithmetic, bounded the FIR. In copy (k mod N) the
// same vectors start at aligned addresses. f lies on a 64-byte boundary and
// shift is PipelineCopySpan + 1.
struct PipelineArrays {
    const double* x;
    double* s;
    double* f;
    double* out;
    int64_t firing;  // delay firing of index 0
    ptrdiff_t shift;
};

// New samples the pipeline holds between shifts of its window.
constexpr size_t kPipelineWindow = 2048;

// The span of one copy of the delay outputs in a window for T taps and
// groups of G over N lanes: the FIR's history, the window, a group and the
// copy's own shift, in whole cache lines. The steady state's copies lie
// this span plus one apart (shift), a constant for the common filter length.
constexpr size_t PipelineCopySpan(size_t G, size_t N, size_t T) {
    const auto lines = [](size_t n) { return (n + 7) / 8 * 8; };
    return lines(lines(2 * G + T - 1) + kPipelineWindow + G + N);
}

// The pipeline's steady state: for every group of G samples (G = 64 with
// AVX-512, 24 with AVX2, 16 otherwise) from `begin` on, `groups` of them:
// recurrence of [i, i + G), delay outputs [i - G, i), FIR outputs
// [i - 2G, i - G). Everything before `begin` must be in place in s and f;
// the recurrence's first section has taken in x up to begin + 1 and goes on
// to begin + groups * G + 1. The first `warm` (0 to 2) groups start the
// pipeline instead, the recurrence alone and the delay in the last of them:
// with warm = 2 at begin = 0 only s needs its history and f the FIR's line
// before 0; the second group computes the first delay outputs, the third
// the first FIR outputs.
size_t PipelineGroup(SimdLevel level);
size_t PipelineLanes(SimdLevel level);
void PipelineSteady(SimdLevel level, PairedRecurrence& cascade, const PipelineArrays& a, size_t begin,
                    size_t groups, const double* firTaps, size_t T, const AtRestDelay& delay, size_t warm);

// Delay outputs [begin, end) alone.
void DelayAtRest(SimdLevel level, const PipelineArrays& a, size_t begin, size_t end, const AtRestDelay& delay);

}  // namespace TesselModelBuilder
