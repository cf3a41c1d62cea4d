// Random-variate generators: uniform on [0, 1], uniform on an interval,
// normal (Marsaglia's polar method) and negative exponential. Each generator
// owns its own 32-bit Mersenne Twister (MT19937, Matsumoto & Nishimura 1998)
// so that every block draws a reproducible stream of its own. Seed 0 asks
// the process-wide seed source for a fresh non-zero seed.
#pragma once

#include <mutex>
#include <random>

namespace TesselModelBuilder {

// Process-wide seed source, seeded at load with the calendar time, and the
// lock that every reseed holds while it touches it.
extern std::mt19937 gRandomSeedGen;
extern std::mutex gRandomSeedGenLock;

// Uniform on [0, 1]: the 32-bit output divided by 2^32 - 1, so both ends occur.
class CUniform01 {
public:
    explicit CUniform01(unsigned long seed);
    // Reseeds the engine; 0 draws a non-zero seed from gRandomSeedGen.
    void Initialize(unsigned long seed);
    double operator()();

protected:
    std::mt19937 m_Engine;
};

// Uniform on [lower, upper]; a reversed interval gives a negative range.
class CUniform : public CUniform01 {
public:
    CUniform();
    CUniform(double lower, double upper, unsigned long seed);
    void Initialize(double lower, double upper, unsigned long seed);
    double operator()();

protected:
    double m_Range;   // upper - lower
    double m_Offset;  // lower bound
};

// Normal with the given mean and variance (not standard deviation).
class CNormal {
public:
    CNormal();
    CNormal(double mean, double variance, unsigned long seed);
    void Initialize(double mean, double variance, unsigned long seed);
    double operator()();

protected:
    double m_Mean;
    double m_Variance;
    double m_Cached;     // the spare variate of the last polar pair
    bool m_HasCached;
    CUniform m_Uniform;  // on [-1, 1]
};

// Negative exponential with the given mean: -ln(u) * mean.
class CNegativeExpntl : public CUniform01 {
public:
    CNegativeExpntl();
    CNegativeExpntl(double mean, unsigned long seed);
    void Initialize(double mean, unsigned long seed);
    double operator()();

protected:
    double m_Mean;
};

}  // namespace TesselModelBuilder
