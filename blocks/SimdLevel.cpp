// SimdLevel: run-time detection of the vector instruction sets.
#include "blocks/SimdLevel.h"

namespace TesselModelBuilder {

SimdLevel DetectSimdLevel() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_cpu_init();
    if (__builtin_cpu_supports(KV2_EIGHT_LANE_TARGET)) return SimdLevel::Avx512;
    if (__builtin_cpu_supports("avx2")) return SimdLevel::Avx2;
#endif
    return SimdLevel::Scalar;
}

std::vector<SimdLevel> SupportedSimdLevels() {
    std::vector<SimdLevel> levels = {SimdLevel::Scalar};
    const SimdLevel widest = DetectSimdLevel();
    if (widest >= SimdLevel::Avx2) levels.push_back(SimdLevel::Avx2);
    if (widest >= SimdLevel::Avx512) levels.push_back(SimdLevel::Avx512);
    return levels;
}

const char* SimdLevelName(SimdLevel level) {
    switch (level) {
        case SimdLevel::Avx2: return "avx2";
        case SimdLevel::Avx512: return "avx512";
        default: return "scalar";
    }
}

}  // namespace TesselModelBuilder
