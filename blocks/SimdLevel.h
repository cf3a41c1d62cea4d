// SimdLevel: which vector instruction set the block kernels may use.
//
// The library is built for baseline x86-64 so that it loads on any host;
// kernels for wider vectors are compiled separately and chosen at run time.
// Every level computes exactly the same bits: vectors only ever run
// independent sums side by side, never split one.
#pragma once

#include <vector>

namespace TesselModelBuilder {

enum class SimdLevel { Scalar = 0, Avx2 = 1, Avx512 = 2 };

// The widest level this processor supports.
SimdLevel DetectSimdLevel();

// Every level this processor supports, narrowest first.
std::vector<SimdLevel> SupportedSimdLevels();

const char* SimdLevelName(SimdLevel level);

// The instruction set the eight-lane kernels are compiled for. A check build
// (KV2_EIGHT_LANES_ON_AVX2) lowers them to AVX2 instead, each vector a pair of
// 256-bit halves with the same lane arithmetic, and offers the AVX-512 level
// wherever AVX2 runs: their grouping, remainders and masks are then tested on
// machines without AVX-512.
#ifdef KV2_EIGHT_LANES_ON_AVX2
#define KV2_EIGHT_LANE_TARGET "avx2"
#else
#define KV2_EIGHT_LANE_TARGET "avx512f"
#endif

}  // namespace TesselModelBuilder
