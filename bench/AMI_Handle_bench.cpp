// What the entry points add to the model's own work: the same block through
// AMI_GetWave (the handle looked up among the live instances, the checks,
// the clock-time marker) and straight through the model. At 1280 samples the
// two should be within noise; at one sample per call the overhead shows, on
// 1, 2 and 4 threads, each with its own instance, so that any contention on
// the shared instance registry would show as well.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "ami/KV2_RX_AMI.h"
#include "bench/RatioReporter.h"
#include "blocks/SimdLevel.h"
#include "model/KV2_RX.h"

using namespace TesselModelBuilder;

namespace {

char kDefaults[] = "(KV2_RX (SampleRate 1e12) (EQ 0) (SamplesPerBit 100) (Corner \"Typ\"))";

std::vector<double> Nrz(size_t n) {
    std::vector<double> wave(n);
    for (size_t i = 0; i < n; ++i) wave[i] = (i / 100) % 3 == 0 ? 0.4 : -0.4;
    return wave;
}

void ThroughGetWave(benchmark::State& state) {
    const size_t block = static_cast<size_t>(state.range(0));
    void* handle = nullptr;
    char* msg = nullptr;
    if (AMI_Init(nullptr, 0, 0, 1e-12, 100e-12, kDefaults, nullptr, &handle, &msg) != 1) std::abort();
    std::vector<double> wave = Nrz(block);
    double clock[2];
    for (auto _ : state) {
        AMI_GetWave(wave.data(), static_cast<long>(block), clock, nullptr, handle);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * block));
    AMI_Close(handle);
}

void ThroughModel(benchmark::State& state) {
    const size_t block = static_cast<size_t>(state.range(0));
    KV2_RX model;
    double in = 0.0, out = 0.0;
    model.input.SetBuffer(&in, 1, 1, 0);
    model.output.SetBuffer(&out, 1, 1, 0);
    if (!model.Setup() || !model.Initialize() || !model.CanRunBlock()) std::abort();
    const SimdLevel level = DetectSimdLevel();
    std::vector<double> wave = Nrz(block);
    for (auto _ : state) {
        model.RunBlock(wave.data(), block, level);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * block));
}


}  // namespace

int main(int argc, char** argv) {
    // Each pair side by side, so that both halves of a ratio meet the same load.
    for (long block : {1280L, 1L})
        for (int threads : {1, 2, 4})
            for (const auto& [name, fn] : {std::make_pair("getwave", ThroughGetWave), std::make_pair("model", ThroughModel)})
                benchmark::RegisterBenchmark(name, fn)->Arg(block)->Threads(threads)->UseRealTime()->Repetitions(5);
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    // Wall time per sample over all threads together.
    std::printf("\nAMI_GetWave over the bare model, same block, same threads (fastest of 5):\n");
    for (const auto& [name, ns] : reporter.nsPerSample) {
        if (name.rfind("getwave", 0) != 0) continue;
        const auto model = reporter.nsPerSample.find("model" + name.substr(7));
        if (model != reporter.nsPerSample.end())
            std::printf("  %-44s %8.2f ns vs %8.2f ns per sample: %.3fx\n", name.c_str(), ns, model->second,
                        ns / model->second);
    }
    benchmark::Shutdown();
    return 0;
}
