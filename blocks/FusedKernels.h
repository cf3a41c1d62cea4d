// FusedKernels: the CTLE recurrence and the FIR sums of the previous chunk in
// one loop.
//
// The two-biquad recurrence is bound by the latency of its own arithmetic and
// leaves the core's vector units idle; the FIR sums are bound by those units
// and have no dependence on the recurrence. Interleaving them, a few taps of a
// group of FIR outputs per recurrence step, lets each hide the other. The
// arithmetic of each is exactly that of its own block form.
#pragma once

#include <cstddef>

#include "blocks/BiquadCascade.h"
#include "blocks/SimdLevel.h"

namespace TesselModelBuilder {

// The producer of the FIR's new inputs, when they are not all there yet:
// produce(context, from, to) writes new inputs [from, to) (at firIn + T - 1
// + from). It is called in order, one group ahead of the sums that read
// them, so that it too runs alongside the recurrence.
struct FirInputProducer {
    void (*produce)(void* context, size_t from, size_t to);
    void* context;
};

// cascade: x[0..n) -> y[0..n); FIR: fir[i] = FirBlock's output i for the
// flat history firIn (T - 1 past samples, then m new ones), i in [0, m).
void CascadeWithFir(SimdLevel level, TwoBiquadRecurrence& cascade, const double* x, double* y,
                    size_t n, const double* firTaps, size_t T, const double* firIn, double* fir,
                    size_t m, const FirInputProducer* producer = nullptr);

}  // namespace TesselModelBuilder
