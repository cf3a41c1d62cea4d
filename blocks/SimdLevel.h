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

}  // namespace TesselModelBuilder
