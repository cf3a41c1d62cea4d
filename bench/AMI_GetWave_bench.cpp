// Throughput of the receiver in nanoseconds per sample: the per-sample graph,
// the block path through AMI_GetWave, each stage of the block path, and the
// floor that no exact method can beat (the selected filter's two-biquad
// recurrence alone). The ratios are printed at the end of the run, so that
// both sides of each ratio come from the same machine at the same time.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "ami/KV2_RX_AMI.h"
#include "model/KV2_RX.h"

using namespace TesselModelBuilder;

namespace {

char kDefaults[] = "(KV2_RX (SampleRate 1e12) (EQ 0) (SamplesPerBit 100) (Corner \"Typ\"))";

std::vector<double> Waveform(size_t n) {
    std::mt19937 rng(2024);
    std::normal_distribution<double> noise(0.0, 0.02);
    std::vector<double> wave(n);
    double level = 0.4;
    for (size_t i = 0; i < n; ++i) {
        if (i % 100 == 0) level = (rng() & 1) ? 0.4 : -0.4;
        wave[i] = level + noise(rng);
    }
    return wave;
}

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

void BlockPathThroughGetWave(benchmark::State& state) {
    const size_t block = static_cast<size_t>(state.range(0));
    void* handle = nullptr;
    char* msg = nullptr;
    if (AMI_Init(nullptr, 0, 0, 1e-12, 100e-12, kDefaults, nullptr, &handle, &msg) != 1) std::abort();
    const std::vector<double> source = Waveform(block);
    std::vector<double> wave(block);
    double clock[2];
    // The copy of the fresh waveform is timed too (a simulator hands over a
    // new block each call); it costs a small fraction of a nanosecond per
    // sample, far less than pausing the clock would.
    for (auto _ : state) {
        std::copy(source.begin(), source.end(), wave.begin());
        AMI_GetWave(wave.data(), static_cast<long>(block), clock, nullptr, handle);
        benchmark::ClobberMemory();
    }
    SetSamples(state, block);
    AMI_Close(handle);
}
BENCHMARK(BlockPathThroughGetWave)->Name("b_block_path_GetWave")->Arg(1280)->Arg(1000000);

// Stages of the block path on 1280-sample blocks, each in its own model.
void StageFilter(benchmark::State& state) {
    Model model;
    const std::vector<double> in = Waveform(1280);
    std::vector<double> out(in.size());
    SDomainIIR& filter = model.m->Subnetwork1.Filter(0);
    for (auto _ : state) {
        filter.RunBlock(in.data(), out.data(), in.size());
        benchmark::ClobberMemory();
    }
    SetSamples(state, in.size());
}
BENCHMARK(StageFilter)->Name("c_stage_ctle_filter");

void StageJitter(benchmark::State& state) {
    Model model;
    const std::vector<double> in = Waveform(1280);
    std::vector<double> out(in.size());
    for (auto _ : state) {
        model.m->J1.RunBlock(in.data(), out.data(), in.size(), DetectSimdLevel());
        benchmark::ClobberMemory();
    }
    SetSamples(state, in.size());
}
BENCHMARK(StageJitter)->Name("c_stage_jitter_delay");

void StageFir(benchmark::State& state) {
    Model model;
    const SimdLevel level = static_cast<SimdLevel>(state.range(0));
    const std::vector<double> in = Waveform(1280);
    std::vector<double> out(in.size());
    for (auto _ : state) {
        model.m->B2.RunBlock(in.data(), out.data(), in.size(), level);
        benchmark::ClobberMemory();
    }
    SetSamples(state, in.size());
    state.SetLabel(SimdLevelName(level));
}

// The floor: x -> two direct-form-II sections, state in registers, nothing else.
void Floor(benchmark::State& state) {
    Model model;
    const double* t = model.m->Subnetwork1.Filter(0).m_pTaps;
    const std::vector<double> in = Waveform(1280);
    std::vector<double> out(in.size());
    double w1 = 0, w2 = 0, v1 = 0, v2 = 0;
    for (auto _ : state) {
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
        benchmark::ClobberMemory();
    }
    SetSamples(state, in.size());
}
BENCHMARK(Floor)->Name("d_floor_two_biquads");

// Records ns per sample of every run while printing as usual.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            const auto items = run.counters.find("items_per_second");
            if (items != run.counters.end() && items->second.value > 0)
                nsPerSample[run.benchmark_name()] = 1e9 / items->second.value;
        }
    }
    std::map<std::string, double> nsPerSample;
};

}  // namespace

int main(int argc, char** argv) {
    for (SimdLevel level : SupportedSimdLevels())
        benchmark::RegisterBenchmark((std::string("c_stage_bessel_fir/") + SimdLevelName(level)).c_str(), StageFir)
            ->Arg(static_cast<int>(level));
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);

    const auto& ns = reporter.nsPerSample;
    std::printf("\nns per sample (items_per_second inverted):\n");
    for (const auto& [name, value] : ns) std::printf("  %-42s %8.2f\n", name.c_str(), value);
    const auto a = ns.find("a_per_sample_path");
    const auto d = ns.find("d_floor_two_biquads");
    for (const char* b : {"b_block_path_GetWave/1280", "b_block_path_GetWave/1000000"}) {
        const auto it = ns.find(b);
        if (it == ns.end()) continue;
        if (a != ns.end()) std::printf("a/b  per-sample over %-28s %6.1fx faster\n", b, a->second / it->second);
        if (d != ns.end()) std::printf("b/d  %-28s over the floor %6.2fx (target < 3.5)\n", b, it->second / d->second);
    }
    benchmark::Shutdown();
    return 0;
}
