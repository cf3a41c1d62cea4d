// KV2_RX: parameter mapping, wiring, the static firing schedule and teardown
// of the receiver graph.
#include "model/KV2_RX.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "blocks/FirKernels.h"
#include "blocks/FusedKernels.h"
#include "dataflow/DFErrorHandler.h"

namespace TesselModelBuilder {

namespace {

using Connection = double* KV2_RX::*;

// Filter k's output to multiplexer input k.
const Connection kFilterToMux[KV2_RX::Subnetwork_Subnetwork1::kNumFilters] = {
    &KV2_RX::m_pBuffer_Subnetwork1_S0_m_dOutput_0__To_Subnetwork1_M9_input_0_,
    &KV2_RX::m_pBuffer_Subnetwork1_S1_m_dOutput_0__To_Subnetwork1_M9_input_1_,
    &KV2_RX::m_pBuffer_Subnetwork1_S2_m_dOutput_0__To_Subnetwork1_M9_input_2_,
    &KV2_RX::m_pBuffer_Subnetwork1_S3_m_dOutput_0__To_Subnetwork1_M9_input_3_,
    &KV2_RX::m_pBuffer_Subnetwork1_S4_m_dOutput_0__To_Subnetwork1_M9_input_4_,
    &KV2_RX::m_pBuffer_Subnetwork1_S5_m_dOutput_0__To_Subnetwork1_M9_input_5_,
    &KV2_RX::m_pBuffer_Subnetwork1_S6_m_dOutput_0__To_Subnetwork1_M9_input_6_,
    &KV2_RX::m_pBuffer_Subnetwork1_S7_m_dOutput_0__To_Subnetwork1_M9_input_7_,
    &KV2_RX::m_pBuffer_Subnetwork1_S8_m_dOutput_0__To_Subnetwork1_M9_input_8_,
    &KV2_RX::m_pBuffer_Subnetwork1_S9_m_dOutput_0__To_Subnetwork1_M9_input_9_,
    &KV2_RX::m_pBuffer_Subnetwork1_S10_m_dOutput_0__To_Subnetwork1_M9_input_10_,
    &KV2_RX::m_pBuffer_Subnetwork1_S11_m_dOutput_0__To_Subnetwork1_M9_input_11_,
    &KV2_RX::m_pBuffer_Subnetwork1_S12_m_dOutput_0__To_Subnetwork1_M9_input_12_,
    &KV2_RX::m_pBuffer_Subnetwork1_S13_m_dOutput_0__To_Subnetwork1_M9_input_13_,
    &KV2_RX::m_pBuffer_Subnetwork1_S14_m_dOutput_0__To_Subnetwork1_M9_input_14_,
    &KV2_RX::m_pBuffer_Subnetwork1_S15_m_dOutput_0__To_Subnetwork1_M9_input_15_};

// Fork output k to filter k's input.
const Connection kForkToFilter[KV2_RX::Subnetwork_Subnetwork1::kNumFilters] = {
    &KV2_RX::m_pBuffer_Subnetwork1_input_output_output_0__To_Subnetwork1_S0_m_dInput,
    &KV2_RX::m_pBuffer_Subnetwork1_input_output_output_1__To_Subnetwork1_S1_m_dInput,
    &KV2_RX::m_pBuffer_Subnetwork1_input_output_output_2__To_Subnetwork1_S2_m_dInput,
    &KV2_RX::m_pBuffer_Subnetwork1_input_output_output_3__To_Subnetwork1_S3_m_dInput,
    &KV2_RX::m_pBuffer_Subnetwork1_input_output_output_4__To_Subnetwork1_S4_m_dInput,
    &KV2_RX::m_pBuffer_Subnetwork1_input_output_output_5__To_Subnetwork1_S5_m_dInput,
    &KV2_RX::m_pBuffer_Subnetwork1_input_output_output_6__To_Subnetwork1_S6_m_dInput,
    &KV2_RX::m_pBuffer_Subnetwork1_input_output_output_7__To_Subnetwork1_S7_m_dInput,
    &KV2_RX::m_pBuffer_Subnetwork1_input_output_output_8__To_Subnetwork1_S8_m_dInput,
    &KV2_RX::m_pBuffer_Subnetwork1_input_output_output_9__To_Subnetwork1_S9_m_dInput,
    &KV2_RX::m_pBuffer_Subnetwork1_input_output_output_10__To_Subnetwork1_S10_m_dInput,
    &KV2_RX::m_pBuffer_Subnetwork1_input_output_output_11__To_Subnetwork1_S11_m_dInput,
    &KV2_RX::m_pBuffer_Subnetwork1_input_output_output_12__To_Subnetwork1_S12_m_dInput,
    &KV2_RX::m_pBuffer_Subnetwork1_input_output_output_13__To_Subnetwork1_S13_m_dInput,
    &KV2_RX::m_pBuffer_Subnetwork1_input_output_output_14__To_Subnetwork1_S14_m_dInput,
    &KV2_RX::m_pBuffer_Subnetwork1_input_output_output_15__To_Subnetwork1_S15_m_dInput};

// A fresh one-element connection array attached to every port that shares it.
// Zeroed so that a port read before its writer fired sees 0.0, not garbage.
template <typename T, typename... Ports>
T* Connect(Ports&... ports) {
    T* storage = new T[1]();
    (ports.SetBuffer(storage, 1, 1, 0), ...);
    return storage;
}

template <typename T>
void Release(T*& storage) {
    delete[] storage;
    storage = nullptr;
}

// Exact +0.0 in every sample: the input under which the filter's tail cycles.
bool AllPositiveZero(const double* x, size_t n) {
    for (size_t i = 0; i < n; ++i) {
        uint64_t bits;
        std::memcpy(&bits, &x[i], sizeof bits);
        if (bits != 0) return false;
    }
    return true;
}

void PreparePort(CircularBufferBase& port) {
    port.SetRate(1);
    if (port.GetHistoryDepth() == 0) port.SetHistoryDepth(1);
}

const char kDefaultCorner[] = "Typ";
constexpr size_t kCornerArraySize = 100;
constexpr size_t kBankCornerArraySize = 10;

}  // namespace

KV2_RX::KV2_RX() : Corner(new char[kCornerArraySize]()) {
    std::strcpy(Corner, kDefaultCorner);
}

KV2_RX::~KV2_RX() {
    DeleteBuffers();
    DeleteArrayParameters();
    delete[] Corner;
}

bool KV2_RX::RunEquations() {
    SampleInterval = 1.0 / SampleRate;
    return true;
}

bool KV2_RX::Setup() {
    DeleteArrayParameters();
    RunEquations();

    Subnetwork1.SampleRate = SampleRate;
    Subnetwork1.CTLE_setting = EQ;
    // The bank keeps its own short copy of the corner; it never reads it, so
    // a longer name is truncated rather than overrunning the array.
    delete[] Subnetwork1.corner;
    Subnetwork1.corner = new char[kBankCornerArraySize]();
    if (Corner != nullptr) std::strncpy(Subnetwork1.corner, Corner, kBankCornerArraySize - 1);
    bool ok = Subnetwork1.Setup();

    J1.SamplesPerBit = SamplesPerBit;
    J1.SampleInterval = SampleInterval;
    J1.Latency = 8;
    J1.RJ = 0.0;
    J1.DJ = 0.0;
    ok = J1.Setup() & ok;

    B2.Bandwidth = 1e11;
    B2.BesselOrder = 4;
    B2.NumTaps = 64;
    B2.SampleRate = SampleRate;
    B2.FFTSize = 128;
    ok = B2.Setup() & ok;

    PreparePort(input);
    PreparePort(output);
    return ok;
}

bool KV2_RX::Initialize() {
    DeleteBuffers();
    Subnetwork_Subnetwork1& bank = Subnetwork1;

    m_pBuffer_input_To_Subnetwork1_input_output_input =
        Connect<double>(input_CirBuf, bank.input_output.input);
    m_pBuffer_B2_Output_To_output = Connect<double>(B2.output, output_CirBuf);
    m_pBuffer_J1_Output_To_B2_Input = Connect<double>(J1.output, B2.input);
    for (int k = 0; k < Subnetwork_Subnetwork1::kNumFilters; ++k)
        this->*kFilterToMux[k] = Connect<double>(*bank.Filter(k).output.Get(0), *bank.M9.input.Get(k));
    m_pBuffer_Subnetwork1_Dbl_to_Int_at_C9_output_output_To_Subnetwork1_M9_control_CircularBuffer =
        Connect<int>(bank.Dbl_to_Int_at_C9_output.output, bank.M9_control_CircularBuffer);
    m_pBuffer_Subnetwork1_C9_output_To_Subnetwork1_Dbl_to_Int_at_C9_output_input =
        Connect<double>(bank.C9.output, bank.Dbl_to_Int_at_C9_output.input);
    m_pBuffer_Subnetwork1_M9_output_To_J1_Input = Connect<double>(bank.M9.output, J1.input);
    for (int k = 0; k < Subnetwork_Subnetwork1::kNumFilters; ++k)
        this->*kForkToFilter[k] = Connect<double>(*bank.input_output.output.Get(k), bank.Filter(k).input);

    bool ok = J1.Initialize();
    ok = B2.Initialize() & ok;
    for (int k = 0; k < Subnetwork_Subnetwork1::kNumFilters; ++k) ok = bank.Filter(k).Initialize() & ok;

    // The constant's own check (its delay must not be negative) decides alone.
    if (!bank.C9.Initialize()) return false;
    return ok;
}

bool KV2_RX::Run() {
    Subnetwork_Subnetwork1& bank = Subnetwork1;
    input_CirBuf[0] = input[0];
    bank.input_output.Run();
    bool ok = true;
    for (int k = 0; k < Subnetwork_Subnetwork1::kNumFilters; ++k) ok = bank.Filter(k).Run() & ok;
    bank.C9.Run();
    bank.Dbl_to_Int_at_C9_output.Run();
    bank.M9.control = bank.M9_control_CircularBuffer[0];
    ok = bank.M9.Run() & ok;
    ok = J1.Run() & ok;
    ok = B2.Run() & ok;
    output[0] = output_CirBuf[0];
    return ok;
}

bool KV2_RX::Finalize() {
    bool ok = J1.Finalize();
    ok = B2.Finalize() & ok;
    for (int k = 0; k < Subnetwork_Subnetwork1::kNumFilters; ++k) ok = Subnetwork1.Filter(k).Finalize() & ok;
    DeleteBuffers();
    DeleteArrayParameters();
    return ok;
}

void KV2_RX::DeleteBuffers() {
    Release(m_pBuffer_input_To_Subnetwork1_input_output_input);
    Release(m_pBuffer_B2_Output_To_output);
    Release(m_pBuffer_J1_Output_To_B2_Input);
    for (const Connection c : kFilterToMux) Release(this->*c);
    Release(m_pBuffer_Subnetwork1_Dbl_to_Int_at_C9_output_output_To_Subnetwork1_M9_control_CircularBuffer);
    Release(m_pBuffer_Subnetwork1_C9_output_To_Subnetwork1_Dbl_to_Int_at_C9_output_input);
    Release(m_pBuffer_Subnetwork1_M9_output_To_J1_Input);
    for (const Connection c : kForkToFilter) Release(this->*c);
}

bool KV2_RX::CanRunBlock() const {
    return IsWired() && EQ >= 0 && EQ < Subnetwork_Subnetwork1::kNumFilters &&
           Subnetwork1.CTLE_setting == EQ && Subnetwork1.C9.m_iInitialDelay == 0;
}

// Indices count from the window's first sample; every kPipelineWindow samples
// the window moves on and keeps the history the stages in flight still read:
// 2L + 1 filter outputs before the oldest pending delay output and T - 1
// delay outputs before the oldest pending FIR output.
double KV2_RX::RunPipeline(TwoBiquadRecurrence& cascade, double* wave, size_t n, SimdLevel level) {
    const double* taps = B2.m_vTaps.data();
    const size_t T = B2.m_vTaps.size(), W = J1.m_vSamples.size(), G = PipelineGroup(level);
    const size_t sHistory = G + W, fHistory = 2 * G + T - 1;
    m_vPipeSamples.resize(sHistory + kPipelineWindow + G);
    double* s = m_vPipeSamples.data() + sHistory;
    std::copy(J1.m_vSamples.begin(), J1.m_vSamples.end(), s - W);

    // The delay outputs and their shifted copies (see PipelineArrays), f on
    // a 64-byte boundary after the history.
    const size_t copies = PipelineLanes(level), span = PipelineCopySpan(G, copies, T);
    m_vPipeDelayed.resize(copies * span + 8);
    const auto misalignment = reinterpret_cast<uintptr_t>(m_vPipeDelayed.data()) % 64 / sizeof(double);
    double* f = m_vPipeDelayed.data() + (8 - misalignment) % 8 + (fHistory + 7) / 8 * 8;
    const ptrdiff_t shift = static_cast<ptrdiff_t>(span) + 1;
    const auto eachCopy = [&](auto&& write) {
        for (size_t j = 0; j < copies; ++j) write(f + static_cast<ptrdiff_t>(j) * shift);
    };
    const double* line = B2.OpenBlock(0);
    eachCopy([&](double* copy) { std::copy(line, line + (T - 1), copy - (T - 1)); });
    const AtRestDelay delay = J1.AtRest();
    PipelineArrays a{wave, s, f, wave, J1.m_iSampleCount, shift};

    // Filtered, delayed and summed up to rec, res and fir; the delay block's
    // and the FIR's own state have taken in samples up to jitterAt and lineAt.
    // Between shifts the pending delay and FIR outputs lie before index 0.
    ptrdiff_t rec = 0, res = 0, fir = 0, jitterAt = 0, lineAt = 0, end = static_cast<ptrdiff_t>(n);
    const ptrdiff_t g = static_cast<ptrdiff_t>(G), window = static_cast<ptrdiff_t>(kPipelineWindow);
    if (end >= 3 * g + 2) {
        // The first two groups fill the pipeline: nothing is delayed or summed
        // before them.
        size_t warm = 2;
        res = -g, fir = -2 * g;
        PairedRecurrence paired(cascade, a.x);
        while (rec + g + 2 <= end) {
            if (rec + g > window) {
                J1.Advance(s + jitterAt, static_cast<size_t>(rec - jitterAt), level);
                B2.AdvanceLine(f + lineAt, static_cast<size_t>(res - lineAt));
                std::copy(s + rec - sHistory, s + rec, s - sHistory);
                eachCopy([&](double* copy) { std::copy(copy + fir - (T - 1), copy + res, copy - fHistory); });
                a.x += rec, a.out += rec, a.firing += rec;
                end -= rec, res -= rec, fir -= rec, rec = 0;
                jitterAt = 0, lineAt = res;
            }
            const ptrdiff_t groups = std::min(end - 2 - rec, window - rec) / g;
            PipelineSteady(level, paired, a, static_cast<size_t>(rec), static_cast<size_t>(groups), taps, T, delay,
                           warm);
            warm -= std::min(warm, static_cast<size_t>(groups));
            rec += groups * g, res += groups * g, fir += groups * g;
        }
        cascade = paired.Finish(s + rec);
        rec += 2;
    }
    // A local copy keeps the state in registers: through the reference every
    // step's chain would pass through memory.
    TwoBiquadRecurrence last = cascade;
    for (; rec < end; ++rec) s[rec] = last.Step(a.x[rec]);
    cascade = last;
    DelayAtRest(level, a, static_cast<size_t>(res), static_cast<size_t>(end), delay);
    FirBlock(level, taps, T, f + fir - (T - 1), a.out + fir, static_cast<size_t>(end - fir));
    J1.Advance(s + jitterAt, static_cast<size_t>(end - jitterAt), level);
    J1.output[0] = f[end - 1];
    B2.EndBlock(f + lineAt, static_cast<size_t>(end - lineAt), a.out[end - 1]);
    return s[end - 1];
}

void KV2_RX::RunBlock(double* wave, size_t n, SimdLevel level) {
    if (n == 0) return;
    Subnetwork_Subnetwork1& bank = Subnetwork1;
    SDomainIIR& filter = bank.Filter(EQ);
    const double lastInput = wave[n - 1];  // the wave is overwritten in place
    m_vBlockScratch.resize(2 * kBlockChunk);
    m_cZeroInput.Reserve();
    double* filtered = m_vBlockScratch.data();
    double* delayed = filtered + kBlockChunk;

    if (!filter.IsTwoBiquadCascade() || !J1.CanRunAtRest(n) || !B2.IsDesigned()) {
        for (size_t at = 0; at < n; at += kBlockChunk) {
            const size_t m = std::min(kBlockChunk, n - at);
            filter.RunBlock(wave + at, filtered, m);
            J1.RunBlock(filtered, delayed, m, level);
            B2.RunBlock(delayed, wave + at, m, level);
        }
    } else {
        // Spans without a chunk of exact zeros go through the pipeline; a
        // chunk of zeros replays the filter's tail, stage by stage.
        TwoBiquadRecurrence cascade(filter.m_pTaps, filter.m_pState1, filter.m_pState2);
        double lastFiltered = 0.0;
        for (size_t at = 0; at < n;) {
            size_t end = at;
            for (size_t m; end < n && !AllPositiveZero(wave + end, m = std::min(kBlockChunk, n - end)); end += m) {}
            if (end > at) {
                m_cZeroInput.Reset();
                lastFiltered = RunPipeline(cascade, wave + at, end - at, level);
                at = end;
                continue;
            }
            const size_t m = std::min(kBlockChunk, n - at);
            m_cZeroInput.Run(cascade, filtered, m);
            J1.RunBlock(filtered, delayed, m, level);
            B2.RunBlock(delayed, wave + at, m, level);
            lastFiltered = filtered[m - 1];
            at += m;
        }
        cascade.Store(filter.m_pState1, filter.m_pState2);
        filter.SetTwoBiquadOutputs(cascade.y, lastFiltered);
    }

    // Leave every port of the live graph as the last firing would.
    input_CirBuf[0] = lastInput;
    for (int k = 0; k < Subnetwork_Subnetwork1::kNumFilters; ++k)
        (*bank.input_output.output.Get(k))[0] = lastInput;
    bank.C9.iSampleCount += n;
    bank.C9.output[0] = bank.C9.Value;
    bank.Dbl_to_Int_at_C9_output.output[0] = EQ;
    bank.M9.control = EQ;
    bank.M9.output[0] = (*filter.output.Get(0))[0];
    output[0] = output_CirBuf[0];
}

// No array parameters are released here: Corner lives as long as the model.
void KV2_RX::DeleteArrayParameters() {}

}  // namespace TesselModelBuilder
