// JitterGenerator: bit-phase tracking, per-bit jitter draw, raised-cosine
// taper and linear-interpolation resampling over a short sample history.
#include "blocks/JitterGenerator.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstdint>
#include <cstring>

#include "blocks/FirKernels.h"
#include "blocks/JitterKernels.h"
#include "dataflow/DFErrorHandler.h"

namespace TesselModelBuilder {

namespace {
constexpr unsigned long kJitterSeed = 5489;  // every run draws the same jitter
constexpr double kPi = 3.141592653589793;

bool IsPositiveZero(double v) {
    uint64_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    return bits == 0;
}
}  // namespace

JitterGenerator::~JitterGenerator() {
    delete m_pNormal;
    delete m_pUniform;
}

bool JitterGenerator::Setup() {
    if (!(SamplesPerBit >= 4)) {
        DFErrorHandler::PostError(this, "SamplesPerBit must be larger than or equal to 4.");
        return false;
    }
    if (0.0 >= SampleInterval) {  // NaN passes
        DFErrorHandler::PostError(this, "SampleInterval must be a positive number.");
        return false;
    }
    if (Latency < 0 || Latency > SamplesPerBit / 2) {
        DFErrorHandler::PostError(this,
            "Latency must be lager than or equal to 0 and smaller than or equal to "
            "SamplesPerBit / 2.");
        return false;
    }
    m_iHistoryLength = 2 * Latency + 1;
    if (0.0 > RJ) {
        DFErrorHandler::PostError(this, "RJ must be larger than or equal to 0.");
        return false;
    }
    if (0.0 > DJ) {
        DFErrorHandler::PostError(this, "DJ must be larger than or equal to 0.");
        return false;
    }
    return true;
}

bool JitterGenerator::Initialize() {
    delete m_pNormal;
    m_pNormal = new CNormal(0.0, 1.0, kJitterSeed);
    delete m_pUniform;
    m_pUniform = new CUniform(-DJ * 0.5, 0.5 * DJ, kJitterSeed);
    m_bNoDeterministicJitter = DJ == 0.0;

    // The history starts as W silent samples at the W instants before time 0,
    // with the bit phases they would have had counting back from the end.
    const int W = m_iHistoryLength;
    m_vSamples.assign(W, 0.0);
    m_vTimes.resize(W);
    m_vPhases.resize(W);
    m_vJitters.assign(W, 0.0);
    for (int i = 0; i < W; ++i) {
        m_vTimes[i] = static_cast<double>(i - W) * SampleInterval;
        m_vPhases[i] = SamplesPerBit - ((W - i) % SamplesPerBit);
    }
    m_iSampleCount = 0;
    m_iOwedDraws = 0;
    m_dPrevSample = 0.0;
    m_iBitPhase = 0;
    m_dJitter = 0.0;
    return true;
}

// Per sample x[n], with Ts the sample interval, L the latency, SPB samples
// per bit and W = 2L + 1 history entries:
//   phase  0 on a strict sign change of x, else +1 wrapping at SPB
//   J      drawn at phase SPB/2: N(0,1)*RJ + U(-DJ/2, DJ/2), clamped to ±Ts(L-1)
//   w      raised cosine |1 + cos(2 pi t)| / 2 over the bit, t = (p-h)/(SPB-2h+1),
//          h = L/2, for the entry L samples back (phase p, offset J); 1 elsewhere
//   tau    w J + (n - L) Ts, clamped into the history's time span
//   y      linear interpolation of the history at tau
bool JitterGenerator::IsReady() const {
    // Only a block initialised with its present Latency can run, and only
    // when all four histories were made (running out of memory part way
    // through Initialize leaves the later ones empty).
    const size_t W = static_cast<size_t>(2 * Latency + 1);
    return m_pNormal != nullptr && m_pUniform != nullptr && m_vSamples.size() == W && m_vTimes.size() == W &&
           m_vPhases.size() == W && m_vJitters.size() == W;
}

void JitterGenerator::Track(double x) {
    if (m_dPrevSample * x < 0.0) {
        m_iBitPhase = 0;
    } else {
        ++m_iBitPhase;
        if (m_iBitPhase >= SamplesPerBit) m_iBitPhase = 0;
    }
    m_dPrevSample = x;
    if (m_iBitPhase == SamplesPerBit / 2) m_dJitter = DrawJitter();
}

void JitterGenerator::SettleDraws() {
    if (m_pNormal == nullptr || m_pUniform == nullptr) m_iOwedDraws = 0;
    for (; m_iOwedDraws > 0; --m_iOwedDraws) {
        (*m_pNormal)();
        (*m_pUniform)();
    }
}

double JitterGenerator::DrawJitter() {
    const double Ts = SampleInterval;
    const int L = Latency;
    double j;
    if (RJ == 0.0 && m_bNoDeterministicJitter) {
        // The sum is +0.0 whatever the draws (see HasNoJitter); they are
        // owed to the generators and taken only when they can matter.
        ++m_iOwedDraws;
        j = 0.0;
    } else {
        SettleDraws();
        const double random = (*m_pNormal)();
        const double deterministic = (*m_pUniform)();
        j = random * RJ + deterministic;
    }
    if (j > Ts * (L - 1))
        j = Ts * (L - 1);
    else if ((-Ts) * (L - 1) > j)
        j = (-Ts) * (L - 1);
    return j;
}

double JitterGenerator::Resample(int64_t n, const double* s, const double* tm, const int* phases,
                                 const double* jitters) const {
    const int W = 2 * Latency + 1;
    if (W == 1) return s[0];  // Latency 0: the history is the present sample alone

    const double Ts = SampleInterval;
    const int L = Latency;
    const int SPB = SamplesPerBit;
    const int d = (W - 1) - L;
    const int p = phases[d];
    const double J = jitters[d];

    // w * J is J itself when J is zero (w is finite and not negative), so the
    // taper is only evaluated for a real offset.
    double wJ = J;
    if (J != 0.0) {
        const int h = L / 2;
        double w = 1.0;
        if (h <= p && p <= SPB - h) {
            const double t = static_cast<double>(p - h) / static_cast<double>(SPB - 2 * h + 1);
            w = std::fabs(1.0 + std::cos(2.0 * t * kPi)) * 0.5;
        }
        wJ = w * J;
    }

    const double first = tm[0];
    const double last = tm[W - 1];
    double tau = wJ + static_cast<double>(n - L) * Ts;
    tau = std::min(last, std::max(first, tau));

    // Truncation toward zero; the last interval also serves tau == last. The
    // range guard only matters for a non-finite Ts, where it keeps the
    // indices inside the history.
    const double position = (tau - first) / Ts;
    int k;
    if (!(position >= 0.0))
        k = 0;
    else if (position >= static_cast<double>(W - 1))
        k = W - 2;
    else
        k = static_cast<int>(position);
    const int i = k + 1;
    return ((tau - tm[i - 1]) * (s[i] - s[i - 1])) / (tm[i] - tm[i - 1]) + s[i - 1];
}

bool JitterGenerator::Run() {
    if (!IsReady()) return false;
    const int W = static_cast<int>(m_vSamples.size());
    const int64_t n = m_iSampleCount;
    const double x = input[0];

    Track(x);
    for (int i = 0; i + 1 < W; ++i) {
        m_vSamples[i] = m_vSamples[i + 1];
        m_vTimes[i] = m_vTimes[i + 1];
        m_vPhases[i] = m_vPhases[i + 1];
        m_vJitters[i] = m_vJitters[i + 1];
    }
    m_vSamples[W - 1] = x;
    m_vTimes[W - 1] = static_cast<double>(n) * SampleInterval;
    m_vPhases[W - 1] = m_iBitPhase;
    m_vJitters[W - 1] = m_dJitter;
    m_iSampleCount = n + 1;

    output[0] = Resample(n, m_vSamples.data(), m_vTimes.data(), m_vPhases.data(), m_vJitters.data());
    return true;
}

namespace {

struct FlatHistory {
    const JitterGenerator* block;
    const double* samples;
    const double* times;
    const int* phases;
    const double* jitters;
    int64_t firstFiring;
    double* out;
};

}  // namespace

void JitterGenerator::ResampleOne(void* context, size_t i) {
    const FlatHistory& h = *static_cast<const FlatHistory*>(context);
    h.out[i] = h.block->Resample(h.firstFiring + static_cast<int64_t>(i), h.samples + i + 1,
                                 h.times + i + 1, h.phases + i + 1, h.jitters + i + 1);
}

bool JitterGenerator::RunBlock(const double* in, double* out, size_t n, SimdLevel level) {
    if (!BeginBlock(in, out, n, level)) return false;
    ResampleBlockRange(0, n);
    EndBlock();
    return true;
}

bool JitterGenerator::BeginBlock(const double* in, double* out, size_t n, SimdLevel level) {
    m_iBlockLength = 0;
    if (!IsReady()) return false;
    if (n == 0) return true;
    const size_t W = m_vSamples.size();
    const int64_t n0 = m_iSampleCount;

    // Lay the history and the block out flat, so that firing i sees the
    // window [i + 1, i + W] without any shifting.
    m_vBlockSamples.resize(W + n);
    m_vBlockTimes.resize(W + n);
    m_vBlockPhases.resize(W + n);
    m_vBlockJitters.resize(W + n);
    double* s = m_vBlockSamples.data();
    double* tm = m_vBlockTimes.data();
    int* ph = m_vBlockPhases.data();
    double* jt = m_vBlockJitters.data();
    std::copy(m_vSamples.begin(), m_vSamples.end(), s);
    std::copy(m_vTimes.begin(), m_vTimes.end(), tm);
    std::copy(m_vPhases.begin(), m_vPhases.end(), ph);
    std::copy(m_vJitters.begin(), m_vJitters.end(), jt);

    // Bit phase and offsets: sequential, as Run tracks them.
    const int SPB = SamplesPerBit;
    const double Ts = SampleInterval;
    size_t i = 0;
    const bool noJitter = HasNoJitter();
    if (noJitter) {
        // Every offset is +0.0: only the samples enter the resampling. The
        // phases of all but the last W samples are never read, so they are
        // only counted through, with the draws they call for.
        const size_t bulk = n > W ? n - W : 0;
        std::copy(in, in + bulk, s + W);
        std::fill(jt + W, jt + W + bulk, 0.0);
        m_iOwedDraws += AdvancePhase(in, bulk, m_dPrevSample, m_iBitPhase, SPB, SPB / 2, level);
        i = bulk;
    }
    for (; i < n; ++i) {
        Track(in[i]);
        const size_t q = W + i;
        s[q] = in[i];
        ph[q] = m_iBitPhase;
        jt[q] = m_dJitter;
    }
    FillTimes(level, tm + W, n0, n, Ts);

    // The outputs wait for ResampleBlockRange; the state below is already
    // that of the end of the block.
    m_iBlockFirst = n0;
    m_pBlockOut = out;
    m_iBlockLength = n;
    m_iBlockToResample = noJitter ? SettledFrom(s, W, n0, n, out) : n;
    m_eBlockLevel = level;

    std::copy(s + n, s + n + W, m_vSamples.begin());
    std::copy(tm + n, tm + n + W, m_vTimes.begin());
    std::copy(ph + n, ph + n + W, m_vPhases.begin());
    std::copy(jt + n, jt + n + W, m_vJitters.begin());
    m_iSampleCount = n0 + static_cast<int64_t>(n);
    return true;
}

void JitterGenerator::ResampleBlockRange(size_t from, size_t to) {
    to = std::min(to, m_iBlockToResample);
    if (from >= to) return;
    const size_t W = m_vSamples.size();
    const double* s = m_vBlockSamples.data() + from;
    const double* tm = m_vBlockTimes.data() + from;
    const int* ph = m_vBlockPhases.data() + from;
    const double* jt = m_vBlockJitters.data() + from;
    const int64_t first = m_iBlockFirst + static_cast<int64_t>(from);
    FlatHistory history{this, s, tm, ph, jt, first, m_pBlockOut + from};
    const JitterWindow window{s, tm, jt, first, Latency, static_cast<int>(W), SampleInterval};
    ResampleBlock(m_eBlockLevel, window, m_pBlockOut + from, to - from, &JitterGenerator::ResampleOne, &history);
}

void JitterGenerator::EndBlock() {
    if (m_iBlockLength > 0) output[0] = m_pBlockOut[m_iBlockLength - 1];
    m_iBlockLength = 0;
}

// Without jitter, an output whose whole window holds one finite value c (a
// settled tail) is c itself: (tau - t0) (c - c) is a zero, divided by the
// positive interval t1 - t0 and added to c. That needs the instants strictly
// increasing (a normal Ts, counts below 2^52) and c not -0.0, whose sum with
// a zero of either sign depends on that sign. Fills those outputs and
// returns how many come before them.
size_t JitterGenerator::SettledFrom(const double* s, size_t W, int64_t n0, size_t n, double* out) const {
    const double Ts = SampleInterval;
    const double c = s[W + n - 1];
    if (!(std::isnormal(Ts) && Ts > 0.0 && std::isfinite(c)) || (c == 0.0 && std::signbit(c)) ||
        std::llabs(n0) + static_cast<int64_t>(W + n) >= (int64_t{1} << 52))
        return n;
    const size_t run = TrailingRun(s, W + n);  // output i reads s[i + 1 .. i + W]
    const size_t first = run == 0 ? 0 : run - 1;
    if (first >= n) return n;
    std::fill(out + first, out + n, c);
    return first;
}

bool JitterGenerator::CanRunAtRest(size_t n) const {
    const double Ts = SampleInterval;
    const int64_t span = static_cast<int64_t>(std::min<size_t>(n, size_t{1} << 52));
    // Counts below 2^50 times a Ts below 2^900 stay finite and normal.
    return IsReady() && Latency >= 1 && std::isnormal(Ts) && Ts > 0.0 && Ts < 0x1p900 && HasNoJitter() &&
           std::llabs(m_iSampleCount) + span + m_iHistoryLength < (int64_t{1} << 50);
}

// The rounded quotient only grows with its dividend, so one edge on the
// dividend decides every output without a division; it lies within a few
// steps of L Ts.
AtRestDelay JitterGenerator::AtRest() const {
    const double Ts = SampleInterval, L = Latency;
    const auto below = [&](double difference) { return difference / Ts < L; };
    double edge = L * Ts;
    while (below(edge)) edge = std::nextafter(edge, HUGE_VAL);
    while (!below(std::nextafter(edge, -HUGE_VAL))) edge = std::nextafter(edge, -HUGE_VAL);
    return AtRestDelay{Latency, Ts, edge, &JitterGenerator::RestingOutput, this};
}

double JitterGenerator::RestingOutput(const void* context, int64_t n, const double* window) {
    const JitterGenerator& g = *static_cast<const JitterGenerator*>(context);
    const int W = 2 * g.Latency + 1;
    g.m_vRestTimes.resize(W);
    g.m_vRestPhases.assign(W, 0);  // read only under an offset
    g.m_vRestJitters.assign(W, 0.0);
    for (int j = 0; j < W; ++j) g.m_vRestTimes[j] = static_cast<double>(n - (W - 1) + j) * g.SampleInterval;
    return g.Resample(n, window, g.m_vRestTimes.data(), g.m_vRestPhases.data(), g.m_vRestJitters.data());
}

// As BeginBlock without jitter: the phases of all but the last W samples are
// only counted through; those W enter the history as Run enters them.
void JitterGenerator::Advance(const double* in, size_t n, SimdLevel level) {
    if (n == 0) return;
    const size_t W = m_vSamples.size();
    const size_t entering = std::min(n, W), bulk = n - entering;
    const int SPB = SamplesPerBit;
    m_iOwedDraws += AdvancePhase(in, bulk, m_dPrevSample, m_iBitPhase, SPB, SPB / 2, level);
    const size_t kept = W - entering;
    std::copy(m_vSamples.end() - kept, m_vSamples.end(), m_vSamples.begin());
    std::copy(m_vTimes.end() - kept, m_vTimes.end(), m_vTimes.begin());
    std::copy(m_vPhases.end() - kept, m_vPhases.end(), m_vPhases.begin());
    std::copy(m_vJitters.end() - kept, m_vJitters.end(), m_vJitters.begin());
    for (size_t i = bulk, q = kept; i < n; ++i, ++q) {
        Track(in[i]);
        m_vSamples[q] = in[i];
        m_vTimes[q] = static_cast<double>(m_iSampleCount + static_cast<int64_t>(i)) * SampleInterval;
        m_vPhases[q] = m_iBitPhase;
        m_vJitters[q] = m_dJitter;
    }
    m_iSampleCount += static_cast<int64_t>(n);
}

// With RJ = 0, and DJ = 0 when the generators were made, a drawn offset is
// +0.0 whatever the generators give: a finite Gaussian draw times a zero plus
// a uniform draw on an interval of zero width from a zero (of either sign,
// the sum is +0.0). The clamp must keep it (it does for L >= 1 and a
// positive or NaN Ts), the offsets in force must be +0.0 already (bit for
// bit), and the phase within range.
bool JitterGenerator::HasNoJitter() const {
    const double bound = SampleInterval * (Latency - 1);
    if (!(RJ == 0.0 && m_bNoDeterministicJitter) || Latency < 1 || 0.0 > bound ||
        (-SampleInterval) * (Latency - 1) > 0.0 || SamplesPerBit < 2 || m_iBitPhase < 0 ||
        m_iBitPhase >= SamplesPerBit || !IsPositiveZero(m_dJitter))
        return false;
    return std::all_of(m_vJitters.begin(), m_vJitters.end(), IsPositiveZero);
}

// The bit phase over x[0..n) as Track moves it: between two sign changes it
// steps by one per sample, so each run is counted in one go. Returns how
// many samples land on mid-bit (one draw each).
size_t JitterGenerator::AdvancePhase(const double* x, size_t n, double& prev, int& phase, int SPB,
                                     int mid, SimdLevel level) {
    size_t draws = 0;
    size_t i = 0;
    while (i < n) {
        if (prev * x[i] < 0.0) {  // phase 0 is never mid-bit (SPB >= 2)
            phase = 0;
            prev = x[i++];
            continue;
        }
        const size_t j = NextSignChange(level, x, i + 1, n);
        const size_t steps = j - i, spb = static_cast<size_t>(SPB);
        // Step k (0-based) leaves phase + k + 1, mid-bit when k = toMid (mod
        // SPB). Runs are mostly shorter than a few bits: the divisions are
        // left to the long ones (each costs the divider many cycles a run).
        const int distance = mid - phase - 1;  // in (-SPB, SPB): phase and mid lie in [0, SPB)
        const size_t toMid = static_cast<size_t>(distance < 0 ? distance + SPB : distance);
        const bool reaches = steps > toMid;
        const size_t rest = reaches ? steps - 1 - toMid : 0;
        draws += static_cast<size_t>(reaches) + (rest < spb ? 0 : rest / spb);
        const size_t next = static_cast<size_t>(phase) + steps;
        phase = static_cast<int>(next < spb ? next : next < 2 * spb ? next - spb : next % spb);
        prev = x[j - 1];
        i = j;
    }
    return draws;
}

bool JitterGenerator::Finalize() {
    delete m_pNormal;
    m_pNormal = nullptr;
    delete m_pUniform;
    m_pUniform = nullptr;
    return true;
}

}  // namespace TesselModelBuilder
