// FirKernels: the FIR sum over a flat block of samples, one kernel per
// instruction set.
//
// out[i] = sum over k = 0 .. T-1 of taps[k] * x[T - 1 + i - k], accumulated
// from +0.0 in increasing k, exactly as the per-sample delay line does it.
// Vector kernels compute several output samples side by side, each with its
// own sequential sum, so every level gives the same bits.
#pragma once

#include <cstddef>

#include "blocks/SimdLevel.h"

namespace TesselModelBuilder {

// Start of the trailing run of x[0..total) whose samples all have the bits of
// x[total - 1]; total >= 1.
size_t TrailingRun(const double* x, size_t total);

// x holds T - 1 samples of history followed by the n samples of the block.
void FirBlock(SimdLevel level, const double* taps, size_t T, const double* x, double* out,
              size_t n);

}  // namespace TesselModelBuilder
