// Throughput of the receiver in nanoseconds per sample: the per-sample graph,
// the block path through AMI_GetWave on a PRBS and on a burst followed by
// 10^6 zeros, the block path on each instruction set, each stage of it, and
// the floor that no exact method can beat (the selected filter's two-biquad
// recurrence alone), the core's peak rate of independent multiply+add pairs
// for scalars and each vector width, and with it the bound no block path can
// beat on this core. The ratios are printed at the end of the run, so that
// both sides of each ratio come from the same machine at the same time.
#include <benchmark/benchmark.h>

#include <immintrin.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "ami/KV2_RX_AMI.h"
#include "blocks/Lanes.h"
#include "bench/RatioReporter.h"
#include "model/KV2_RX.h"

using namespace TesselModelBuilder;

namespace {

char kDefaults[] = "(KV2_RX (SampleRate 1e12) (EQ 0) (SamplesPerBit 100) (Corner \"Typ\"))";

// PRBS7 NRZ at 100 samples per bit with a little noise.
std::vector<double> Waveform(size_t n) {
    std::mt19937 rng(2024);
    std::normal_distribution<double> noise(0.0, 0.02);
    std::vector<double> wave(n);
    unsigned prbs = 0x7f;
    double level = 0.4;
    for (size_t i = 0; i < n; ++i) {
        if (i % 100 == 0) {
            prbs = ((prbs << 1) | (((prbs >> 6) ^ (prbs >> 5)) & 1u)) & 0x7fu;
            level = (prbs & 1u) ? 0.4 : -0.4;
        }
        wave[i] = level + noise(rng);
    }
    return wave;
}

// Time-stamp counter ticks per sample: the median over the iterations, so
// that the odd iteration in which the core was taken away does not count.
// (The counter runs at a fixed rate, 2.6 GHz on the machine of the README.)
class Ticks {
public:
    void Begin() { m_start = __rdtsc(); }
    void End() { m_ticks.push_back(__rdtsc() - m_start); }
    void Report(benchmark::State& state, size_t perIteration) {
        if (m_ticks.empty()) return;
        std::nth_element(m_ticks.begin(), m_ticks.begin() + m_ticks.size() / 2, m_ticks.end());
        state.counters["tsc/sample"] =
            static_cast<double>(m_ticks[m_ticks.size() / 2]) / static_cast<double>(perIteration);
    }

private:
    uint64_t m_start = 0;
    std::vector<uint64_t> m_ticks;
};

// A model driven directly, ports wired as the entry points wire them.
struct Model {
    Model() : m(std::make_unique<KV2_RX>()) {
        m->input.SetBuffer(&in, 1, 1, 0);
        m->output.SetBuffer(&out, 1, 1, 0);
        if (!m->Setup() || !m->Initialize()) std::abort();
    }
    std::unique_ptr<KV2_RX> m;
    double in = 0.0, out = 0.0;
};

void SetSamples(benchmark::State& state, size_t perIteration) {
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * perIteration));
}

void PerSamplePath(benchmark::State& state) {
    Model model;
    const std::vector<double> wave = Waveform(4096);
    for (auto _ : state) {
        for (double x : wave) {
            model.in = x;
            model.m->Run();
            benchmark::DoNotOptimize(model.out);
        }
    }
    SetSamples(state, wave.size());
}
BENCHMARK(PerSamplePath)->Name("a_per_sample_path");

// The waveform is handed over in calls of `block` samples; the copy of the
// fresh waveform is timed too (a simulator hands over new samples on every
// call), far cheaper than pausing the clock would be.
void RunGetWave(benchmark::State& state, const std::vector<double>& source, size_t block, int eq = 0) {
    void* handle = nullptr;
    char* msg = nullptr;
    std::string text = kDefaults;
    text.replace(text.find("(EQ 0)"), 6, "(EQ " + std::to_string(eq) + ")");
    if (AMI_Init(nullptr, 0, 0, 1e-12, 100e-12, text.data(), nullptr, &handle, &msg) != 1) std::abort();
    std::vector<double> wave(source.size());
    double clock[2];
    Ticks ticks;
    for (auto _ : state) {
        ticks.Begin();
        std::copy(source.begin(), source.end(), wave.begin());
        for (size_t at = 0; at < wave.size(); at += block)
            AMI_GetWave(wave.data() + at, static_cast<long>(std::min(block, wave.size() - at)), clock, nullptr, handle);
        ticks.End();
        benchmark::ClobberMemory();
    }
    ticks.Report(state, source.size());
    SetSamples(state, source.size());
    AMI_Close(handle);
}

void PrbsThroughGetWave(benchmark::State& state) {
    const size_t block = static_cast<size_t>(state.range(0));
    RunGetWave(state, Waveform(block), block);
}
BENCHMARK(PrbsThroughGetWave)->Name("b_prbs_GetWave")->Arg(1280)->Arg(1000000);

// An impulse-response style measurement: a short burst, then 10^6 exact
// zeros, handed over in calls of 1280 samples. Settings 0, 10 and 11 end in
// the three kinds of tail: a cycle of zeros, a fixed point, a cycle of
// subnormals.
void ZeroTailThroughGetWave(benchmark::State& state) {
    std::vector<double> wave = Waveform(2000);
    wave.resize(wave.size() + 1000000, 0.0);
    RunGetWave(state, wave, 1280, static_cast<int>(state.range(0)));
}
BENCHMARK(ZeroTailThroughGetWave)->Name("b_zero_tail_GetWave")->ArgName("EQ")->Arg(0)->Arg(10)->Arg(11);

// Stages of the block path on 1280-sample blocks, each in its own model.
void StageFilter(benchmark::State& state) {
    Model model;
    const std::vector<double> in = Waveform(1280);
    std::vector<double> out(in.size());
    SDomainIIR& filter = model.m->Subnetwork1.Filter(0);
    Ticks ticks;
    for (auto _ : state) {
        ticks.Begin();
        filter.RunBlock(in.data(), out.data(), in.size());
        ticks.End();
        benchmark::ClobberMemory();
    }
    ticks.Report(state, in.size());
    SetSamples(state, in.size());
}
BENCHMARK(StageFilter)->Name("c_stage_ctle_filter");

void StageJitter(benchmark::State& state) {
    Model model;
    const std::vector<double> in = Waveform(1280);
    std::vector<double> out(in.size());
    Ticks ticks;
    for (auto _ : state) {
        ticks.Begin();
        model.m->J1.RunBlock(in.data(), out.data(), in.size(), DetectSimdLevel());
        ticks.End();
        benchmark::ClobberMemory();
    }
    ticks.Report(state, in.size());
    SetSamples(state, in.size());
}
BENCHMARK(StageJitter)->Name("c_stage_jitter_delay");

// The whole block path on each instruction set, as a host without the wider
// ones would run it, in calls of `samples` (1280, and 10^6 in one call).
void BlockPathAtLevel(benchmark::State& state, size_t samples) {
    Model model;
    const SimdLevel level = static_cast<SimdLevel>(state.range(0));
    const std::vector<double> source = Waveform(samples);
    std::vector<double> wave(source.size());
    Ticks ticks;
    // Only the call is timed: the fresh copy of the input stands for the
    // host's own work (for 10^6 samples, 16 MB through the caches).
    for (auto _ : state) {
        std::copy(source.begin(), source.end(), wave.begin());
        benchmark::ClobberMemory();
        const auto start = std::chrono::steady_clock::now();
        ticks.Begin();
        model.m->RunBlock(wave.data(), wave.size(), level);
        ticks.End();
        state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        benchmark::ClobberMemory();
    }
    ticks.Report(state, wave.size());
    SetSamples(state, wave.size());
    state.SetLabel(SimdLevelName(level));
}

void StageFir(benchmark::State& state) {
    Model model;
    const SimdLevel level = static_cast<SimdLevel>(state.range(0));
    const std::vector<double> in = Waveform(1280);
    std::vector<double> out(in.size());
    Ticks ticks;
    for (auto _ : state) {
        ticks.Begin();
        model.m->B2.RunBlock(in.data(), out.data(), in.size(), level);
        ticks.End();
        benchmark::ClobberMemory();
    }
    ticks.Report(state, in.size());
    SetSamples(state, in.size());
    state.SetLabel(SimdLevelName(level));
}

// The floor: x -> two direct-form-II sections, state in registers, nothing else.
void FloorPass(const double* t, const std::vector<double>& in, std::vector<double>& out) {
    double w1 = 0, w2 = 0, v1 = 0, v2 = 0;
    for (size_t i = 0; i < in.size(); ++i) {
        const double w = (in[i] - t[4] * w1) - t[5] * w2;
        const double y = (t[1] * w1 + t[0] * w) + t[2] * w2;
        w2 = w1;
        w1 = w;
        const double v = (y - t[10] * v1) - t[11] * v2;
        out[i] = (t[7] * v1 + t[6] * v) + t[8] * v2;
        v2 = v1;
        v1 = v;
    }
}

void Floor(benchmark::State& state) {
    Model model;
    const double* t = model.m->Subnetwork1.Filter(0).m_pTaps;
    const std::vector<double> in = Waveform(1280);
    std::vector<double> out(in.size());
    Ticks ticks;
    for (auto _ : state) {
        ticks.Begin();
        FloorPass(t, in, out);
        ticks.End();
        benchmark::ClobberMemory();
    }
    ticks.Report(state, in.size());
    SetSamples(state, in.size());
}
BENCHMARK(Floor)->Name("d_floor_two_biquads");

// The peak rate of independent multiply+add pairs (a separate multiply and
// add, as every kernel here does): twelve chains, enough to cover the latency
// of a multiply followed by an add on two pipes of each kind.
constexpr int kChains = 12;
constexpr size_t kRounds = 4096;

template <int N>
KV2_LANES_INLINE double PeakPairs() {
    using V = typename Lanes<N>::V;
    V acc[kChains];
    for (int k = 0; k < kChains; ++k) acc[k] = Broadcast<N>(k);
    const V c = Broadcast<N>(0.999999), x = Broadcast<N>(1e-3);
    for (size_t r = 0; r < kRounds; ++r) {
#pragma GCC unroll 12
        for (int k = 0; k < kChains; ++k) acc[k] = acc[k] * c + x;
    }
    double sum = 0;
    for (int k = 0; k < kChains; ++k) sum += acc[k][0];
    return sum;
}

double PeakScalar() {
    double acc[kChains];
    for (int k = 0; k < kChains; ++k) acc[k] = k;
    for (size_t r = 0; r < kRounds; ++r) {
#pragma GCC unroll 12
        for (int k = 0; k < kChains; ++k) acc[k] = acc[k] * 0.999999 + 1e-3;
    }
    double sum = 0;
    for (int k = 0; k < kChains; ++k) sum += acc[k];
    return sum;
}
__attribute__((target("avx2"))) double PeakAvx2() { return PeakPairs<4>(); }
__attribute__((target("avx512f"))) double PeakAvx512() { return PeakPairs<8>(); }

double Peak(SimdLevel level) {
    return level == SimdLevel::Avx512 ? PeakAvx512() : level == SimdLevel::Avx2 ? PeakAvx2() : PeakScalar();
}

// Items are vector pairs: ns per item is the time of one pair of that width.
void PeakMulAdd(benchmark::State& state) {
    const SimdLevel level = static_cast<SimdLevel>(state.range(0));
    for (auto _ : state) benchmark::DoNotOptimize(Peak(level));
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kRounds * kChains));
    state.SetLabel(SimdLevelName(level));
}

// Channels side by side: each thread its own instance through AMI_GetWave.
// Against one thread, two should come close to twice the samples a second.
void ChannelsSideBySide(benchmark::State& state) {
    const std::vector<double> source = Waveform(1280);
    void* handle = nullptr;
    char* msg = nullptr;
    std::string text = kDefaults;
    if (AMI_Init(nullptr, 0, 0, 1e-12, 100e-12, text.data(), nullptr, &handle, &msg) != 1) std::abort();
    std::vector<double> wave(source.size());
    double clock[2];
    for (auto _ : state) {
        std::copy(source.begin(), source.end(), wave.begin());
        AMI_GetWave(wave.data(), static_cast<long>(wave.size()), clock, nullptr, handle);
        benchmark::ClobberMemory();
    }
    SetSamples(state, source.size());
    AMI_Close(handle);
}
BENCHMARK(ChannelsSideBySide)->Name("f_channels")->Threads(1)->Threads(2)->UseRealTime();


// The floor, the peak rates and the block path once more, interleaved: round
// after round the floor over 1280 samples, one run of each peak loop and one
// 1280-sample call per level, every 16th round a 10^6-sample call per level;
// each figure the fastest of its rounds. On a shared core other work comes
// and goes within a run: whole benchmarks, one after the other, each catch a
// different share of it (their ratios moved by a fifth from run to run),
// while every side's fastest round is the core as undisturbed as it was in
// this run.
struct Interleaved {
    size_t rounds = 0, longRounds = 0;
    double floor = 0;
    std::map<SimdLevel, double> pair, block, blockLong;
};

Interleaved MeasureInterleaved(size_t rounds) {
    using Clock = std::chrono::steady_clock;
    const auto nsSince = [](Clock::time_point start) {
        return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
    };
    const auto keepFastest = [](double& best, double value) { best = best > 0 && best <= value ? best : value; };
    const std::vector<SimdLevel> levels = SupportedSimdLevels();
    Model floorModel;
    const double* t = floorModel.m->Subnetwork1.Filter(0).m_pTaps;
    const std::vector<double> shortWave = Waveform(1280), longWave = Waveform(1000000);
    std::vector<double> out(shortWave.size()), wave(shortWave.size()), longCopy(longWave.size());
    std::map<SimdLevel, std::unique_ptr<Model>> shortModels, longModels;
    for (SimdLevel level : levels) {
        shortModels[level] = std::make_unique<Model>();
        longModels[level] = std::make_unique<Model>();
    }
    // Only the call is timed, on a fresh copy of the input.
    const auto timeBlock = [&](Model& model, SimdLevel level, const std::vector<double>& source,
                               std::vector<double>& copy, double& best) {
        std::copy(source.begin(), source.end(), copy.begin());
        benchmark::ClobberMemory();
        const Clock::time_point start = Clock::now();
        model.m->RunBlock(copy.data(), copy.size(), level);
        benchmark::ClobberMemory();
        keepFastest(best, nsSince(start) / static_cast<double>(copy.size()));
    };
    Interleaved r;
    for (r.rounds = 0; r.rounds < rounds; ++r.rounds) {
        Clock::time_point start = Clock::now();
        FloorPass(t, shortWave, out);
        benchmark::ClobberMemory();
        keepFastest(r.floor, nsSince(start) / static_cast<double>(shortWave.size()));
        for (SimdLevel level : levels) {
            start = Clock::now();
            benchmark::DoNotOptimize(Peak(level));
            keepFastest(r.pair[level], nsSince(start) / static_cast<double>(kRounds * kChains));
            timeBlock(*shortModels[level], level, shortWave, wave, r.block[level]);
            if (r.rounds % 16 == 0) timeBlock(*longModels[level], level, longWave, longCopy, r.blockLong[level]);
        }
        r.longRounds += r.rounds % 16 == 0;
    }
    return r;
}

// The bound: per output sample the 64-tap FIR's 64 / W pairs of the widest
// vectors W and the recurrence's 10 multiplies at the scalar rate, never
// below the floor (the recurrence's own latency).
double Bound(double floor, double scalarPair, SimdLevel level, double pair) {
    const int width = level == SimdLevel::Avx512 ? 8 : level == SimdLevel::Avx2 ? 4 : 1;
    return std::max(floor, 64.0 / width * pair + 10.0 * scalarPair);
}

void PrintBoundTable(const char* title, double floor, double scalarPair, const std::map<SimdLevel, double>& pair,
                     const std::map<SimdLevel, double>& block, const std::map<SimdLevel, double>& blockLong) {
    std::printf("\n%s\n%-8s %8s %8s %12s %12s %9s %9s %9s %9s  (ns per sample; target: within 1.25x of the bound)\n",
                title, "level", "floor", "bound", "block 1280", "block 10^6", "/floor", "/bound", "1M/floor",
                "1M/bound");
    for (SimdLevel level : SupportedSimdLevels()) {
        const auto value = [level](const std::map<SimdLevel, double>& m) {
            const auto f = m.find(level);
            return f == m.end() ? 0.0 : f->second;
        };
        const std::string name = SimdLevelName(level);
        const double bound = Bound(floor, scalarPair, level, value(pair));
        const double shortBlock = value(block), longBlock = value(blockLong);
        if (shortBlock == 0 || longBlock == 0) {
            std::printf("%-8s %8.2f %8.2f  (block path not run)\n", name.c_str(), floor, bound);
            continue;
        }
        std::printf("%-8s %8.2f %8.2f %12.2f %12.2f %9.2f %9.2f %9.2f %9.2f  %s\n", name.c_str(), floor, bound,
                    shortBlock, longBlock, shortBlock / floor, shortBlock / bound, longBlock / floor,
                    longBlock / bound, shortBlock <= 1.25 * bound && longBlock <= 1.25 * bound ? "met" : "NOT met");
    }
}

}  // namespace

int main(int argc, char** argv) {
    for (SimdLevel level : SupportedSimdLevels())
        benchmark::RegisterBenchmark((std::string("b_block_path/") + SimdLevelName(level)).c_str(), BlockPathAtLevel,
                                     size_t(1280))
            ->Arg(static_cast<int>(level))
            ->UseManualTime();
    for (SimdLevel level : SupportedSimdLevels())
        benchmark::RegisterBenchmark((std::string("c_stage_bessel_fir/") + SimdLevelName(level)).c_str(), StageFir)
            ->Arg(static_cast<int>(level));
    for (SimdLevel level : SupportedSimdLevels()) {
        benchmark::RegisterBenchmark((std::string("b_block_path_1M/") + SimdLevelName(level)).c_str(),
                                     BlockPathAtLevel, size_t(1000000))
            ->Arg(static_cast<int>(level))
            ->UseManualTime();
        benchmark::RegisterBenchmark((std::string("e_peak_mul_add/") + SimdLevelName(level)).c_str(), PeakMulAdd)
            ->Arg(static_cast<int>(level));
    }
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);

    const auto& ns = reporter.nsPerSample;
    std::printf("\nns per sample (items_per_second inverted):\n");
    for (const auto& [name, value] : ns) std::printf("  %-42s %8.2f\n", name.c_str(), value);
    const auto ratio = [&](const char* what, const char* over, double target) {
        const auto a = ns.find(what), b = ns.find(over);
        if (a == ns.end() || b == ns.end()) return;
        const double r = a->second / b->second;
        std::printf("%-30s / %-30s %6.2f (target <= %.2f: %s)\n", what, over, r, target, r <= target ? "met" : "NOT met");
    };
    ratio("b_prbs_GetWave/1280", "d_floor_two_biquads", 2.5);
    ratio("b_prbs_GetWave/1000000", "d_floor_two_biquads", 2.5);
    for (const char* tail : {"b_zero_tail_GetWave/EQ:0", "b_zero_tail_GetWave/EQ:10", "b_zero_tail_GetWave/EQ:11"})
        ratio(tail, "b_prbs_GetWave/1280", 1.5);
    const auto a = ns.find("a_per_sample_path"), b = ns.find("b_prbs_GetWave/1280");
    if (a != ns.end() && b != ns.end()) std::printf("block path %.1fx faster than per sample\n", a->second / b->second);

    const auto at = [&](const std::string& name) { const auto f = ns.find(name); return f == ns.end() ? 0.0 : f->second; };
    // Benchmarks registered per level are named <what>/<level>/<level number>
    // (and /manual_time where only the call is timed).
    const auto perLevel = [&](const std::string& what, SimdLevel level, const char* suffix = "") {
        return at(what + "/" + SimdLevelName(level) + "/" + std::to_string(static_cast<int>(level)) + suffix);
    };
    const double floor = at("d_floor_two_biquads"), scalarPair = perLevel("e_peak_mul_add", SimdLevel::Scalar);
    if (floor > 0 && scalarPair > 0) {
        std::map<SimdLevel, double> pair, block, blockLong;
        for (SimdLevel level : SupportedSimdLevels()) {
            pair[level] = perLevel("e_peak_mul_add", level);
            block[level] = perLevel("b_block_path", level, "/manual_time");
            blockLong[level] = perLevel("b_block_path_1M", level, "/manual_time");
        }
        PrintBoundTable("Fastest repetition of each benchmark above:", floor, scalarPair, pair, block, blockLong);
        const Interleaved r = MeasureInterleaved(3000);
        const std::string title = "Fastest of " + std::to_string(r.rounds) + " interleaved rounds (" +
                                  std::to_string(r.longRounds) + " for 10^6 samples):";
        PrintBoundTable(title.c_str(), r.floor, r.pair.at(SimdLevel::Scalar), r.pair, r.block, r.blockLong);
    }
    const double one = at("f_channels/real_time/threads:1"), two = at("f_channels/real_time/threads:2");
    if (one > 0 && two > 0)
        std::printf("two channels on two threads: %.2fx the samples a second of one (target >= 1.9)\n", one / two);
    benchmark::Shutdown();
    return 0;
}
