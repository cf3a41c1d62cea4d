// Random-variate generators on MT19937 and the shared seed source.
// Normal variates: Marsaglia & Bray, "A convenient method for generating
// normal variables", SIAM Review 6 (1964) — the polar method, which yields
// two variates per accepted pair; the second is kept as a spare.
#include "blocks/RandomNumberGenerator.h"

#include <cmath>
#include <cstdint>
#include <ctime>

namespace TesselModelBuilder {

std::mt19937 gRandomSeedGen(static_cast<uint32_t>(std::time(nullptr)));
std::mutex gRandomSeedGenLock;

namespace {
constexpr unsigned long kDefaultSeed = 5489;
constexpr double kFullScale = 4294967295.0;  // 2^32 - 1
}  // namespace

CUniform01::CUniform01(unsigned long seed) : m_Engine(kDefaultSeed) { Initialize(seed); }

void CUniform01::Initialize(unsigned long seed) {
    std::lock_guard<std::mutex> lock(gRandomSeedGenLock);
    // An engine seeded with 0 would repeat across instances; seed 0 means
    // "any seed" and is replaced by a non-zero draw from the shared source.
    while (seed == 0) seed = gRandomSeedGen();
    m_Engine.seed(static_cast<std::mt19937::result_type>(seed));
}

double CUniform01::operator()() { return static_cast<double>(m_Engine()) / kFullScale; }

CUniform::CUniform() : CUniform01(kDefaultSeed), m_Range(1.0), m_Offset(0.0) {}

CUniform::CUniform(double lower, double upper, unsigned long seed)
    : CUniform01(seed), m_Range(upper - lower), m_Offset(lower) {}

void CUniform::Initialize(double lower, double upper, unsigned long seed) {
    m_Offset = lower;
    m_Range = upper - lower;
    CUniform01::Initialize(seed);
}

double CUniform::operator()() {
    const double u = CUniform01::operator()();
    return u * m_Range + m_Offset;
}

CNormal::CNormal()
    : m_Mean(0.0), m_Variance(1.0), m_Cached(0.0), m_HasCached(false),
      m_Uniform(-1.0, 1.0, kDefaultSeed) {}

CNormal::CNormal(double mean, double variance, unsigned long seed)
    : m_Mean(mean), m_Variance(variance), m_Cached(0.0), m_HasCached(false),
      m_Uniform(-1.0, 1.0, seed) {}

void CNormal::Initialize(double mean, double variance, unsigned long seed) {
    m_Mean = mean;
    m_Variance = variance;
    m_HasCached = false;
    m_Uniform.Initialize(-1.0, 1.0, seed);
}

// Polar method: draw (u1, u2) uniformly in the square [-1, 1]^2 until it
// falls inside the unit circle (s = 0 is kept); then
// f = sqrt(-2 var ln(s) / s) and u2*f, u1*f are two independent N(0, var).
double CNormal::operator()() {
    if (m_HasCached) {
        m_HasCached = false;
        return m_Cached;
    }
    double u1, u2, s;
    do {
        u1 = m_Uniform();
        u2 = m_Uniform();
        s = u2 * u2 + u1 * u1;
    } while (!(s < 1.0));
    const double f = std::sqrt((std::log(s) * (-2.0 * m_Variance)) / s);
    m_Cached = u1 * f + m_Mean;
    m_HasCached = true;
    return m_Mean + u2 * f;
}

CNegativeExpntl::CNegativeExpntl() : CUniform01(kDefaultSeed), m_Mean(1.0) {}

CNegativeExpntl::CNegativeExpntl(double mean, unsigned long seed)
    : CUniform01(seed), m_Mean(mean) {}

void CNegativeExpntl::Initialize(double mean, unsigned long seed) {
    m_Mean = mean;
    CUniform01::Initialize(seed);
}

// u = 0 gives +infinity, u = 1 gives zero.
double CNegativeExpntl::operator()() {
    const double u = CUniform01::operator()();
    return -std::log(u) * m_Mean;
}

}  // namespace TesselModelBuilder
