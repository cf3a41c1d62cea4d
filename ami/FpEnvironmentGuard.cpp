// FpEnvironmentGuard: out of line on purpose, so that the compiler cannot
// move the model's arithmetic across the switch of the environment.
#include "ami/FpEnvironmentGuard.h"

#include <immintrin.h>

namespace TesselModelBuilder {

FpEnvironmentGuard::FpEnvironmentGuard() : m_uCallerMxcsr(_mm_getcsr()) { _mm_setcsr(kDefaultMxcsr); }

FpEnvironmentGuard::~FpEnvironmentGuard() { _mm_setcsr(m_uCallerMxcsr); }

}  // namespace TesselModelBuilder
