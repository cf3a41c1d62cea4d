// CorrectlyRoundedPow: pow(g, 1.0 / S) rounded to nearest from its exact
// value, so that a filter design gives the same taps whatever C runtime or
// CPU the library runs on (platform pow functions differ in the last bit, and
// even one implementation picks a different path with and without FMA).
#pragma once

#include <cstddef>

namespace TesselModelBuilder {

// The double nearest to g^y, y = 1.0 / S (the double quotient, as pow sees
// it), with pow's special cases: S = 1 gives g itself; for S >= 2 a zero
// gives +0, +-infinity gives +infinity, a NaN or a negative g gives NaN.
// S = 2 is the square root. S = 0 gives NaN (no such design).
double CorrectlyRoundedPowOneOver(double g, size_t S);

}  // namespace TesselModelBuilder
