// FusedKernels: the receiver's live branch (the CTLE recurrence, the delay
// block without jitter, the FIR) as one software pipeline.
//
// The two-biquad recurrence is bound by the latency of its own arithmetic and
// leaves the core's vector units idle; the delay's interpolation and the FIR
// sums are bound by those units (and the divider) and do not depend on the
// recurrence's latest samples. One loop body therefore carries the
// recurrence of group t, the interpolation of group t - 1 and the FIR sums of
// group t - 2, so that the out-of-order core runs them side by side. The
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
struct PipelineArrays {
    const double* x;
    double* s;
    double* f;
    double* out;
    int64_t firing;  // delay firing of index 0
};

// The pipeline's steady state: for every group of G samples (G = 64 with
// AVX-512, 32 with AVX2, 16 otherwise) from `begin` on, `groups` of them:
// recurrence of [i, i + G), delay outputs [i - G, i), FIR outputs
// [i - 2G, i - G). Everything before `begin` must be in place in s and f.
size_t PipelineGroup(SimdLevel level);
void PipelineSteady(SimdLevel level, TwoBiquadRecurrence& cascade, const PipelineArrays& a, size_t begin,
                    size_t groups, const double* firTaps, size_t T, const AtRestDelay& delay);

// Delay outputs [begin, end) alone.
void DelayAtRest(SimdLevel level, const PipelineArrays& a, size_t begin, size_t end, const AtRestDelay& delay);

}  // namespace TesselModelBuilder
