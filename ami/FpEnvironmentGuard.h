// FpEnvironmentGuard: the floating-point environment the model computes in,
// whatever the host has set.
//
// Hosts run with other rounding modes, with flush-to-zero or
// denormals-are-zero, or with exceptions unmasked; any of these would change
// output bits or trap inside the model. Each entry point holds one guard for
// its whole call: it saves the caller's MXCSR, loads the IEEE default (round
// to nearest, no FTZ, no DAZ, every exception masked, no flags) and puts the
// caller's word back, sticky flags included, on every way out.
//
// Only MXCSR matters: no x87 arithmetic is reachable from the entry points
// (the library's only x87 instructions sit in the C++ runtime's long double
// and money facets, which nothing here calls; the maths library's double
// functions use SSE on x86-64), so the x87 control word is left alone.
#pragma once

#include <cstdint>

namespace TesselModelBuilder {

class FpEnvironmentGuard {
public:
    // Round to nearest, FTZ and DAZ off, all six exceptions masked, no flags.
    static constexpr uint32_t kDefaultMxcsr = 0x1F80;

    FpEnvironmentGuard();
    ~FpEnvironmentGuard();
    FpEnvironmentGuard(const FpEnvironmentGuard&) = delete;
    FpEnvironmentGuard& operator=(const FpEnvironmentGuard&) = delete;

private:
    uint32_t m_uCallerMxcsr;
};

}  // namespace TesselModelBuilder
