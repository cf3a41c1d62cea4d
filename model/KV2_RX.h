// KV2_RX: the generated receiver model.
//
// input -> CTLE bank (fork to sixteen s-domain filters, multiplexer chosen by
// EQ) -> J1 jitter generator (a fixed 8-sample delay here) -> B2 Bessel FIR ->
// output. Every block fires once per sample and every connection is a
// one-sample array shared by the writer's and the reader's port.
#pragma once

#include <cstddef>
#include <vector>

#include "blocks/BesselLPF.h"
#include "blocks/BiquadCascade.h"
#include "blocks/JitterGenerator.h"
#include "blocks/SDomainIIR.h"
#include "blocks/SimdLevel.h"
#include "blocks/ZeroInputCycle.h"
#include "dataflow/CircularBuffer.h"
#include "dataflow/ConstUnTimed.h"
#include "dataflow/DFModel.h"
#include "dataflow/Fork.h"
#include "dataflow/Mux.h"
#include "dataflow/TypeConverter.h"

namespace TesselModelBuilder {

class KV2_RX : public DFModel {
public:
    // The CTLE bank: sixteen fixed equalizer responses fed with the same
    // signal, one of which the multiplexer passes on. A plain aggregate of
    // blocks; the owning model wires and fires them.
    class Subnetwork_Subnetwork1 {
    public:
    SDomainIIR S0;
    SDomainIIR S1;
    SDomainIIR S2;
    SDomainIIR S3;
    SDomainIIR S4;
    SDomainIIR S5;
    SDomainIIR S6;
    SDomainIIR S7;
    SDomainIIR S8;
    SDomainIIR S9;
    SDomainIIR S10;
    SDomainIIR S11;
    SDomainIIR S12;
    SDomainIIR S13;
    SDomainIIR S14;
    SDomainIIR S15;
        ScalarToScalar<CircularBuffer<double>, CircularBuffer<int>, TypeConverterRound, DFModel>
            Dbl_to_Int_at_C9_output;
        ConstUnTimed<double> C9;
        Mux<CircularBuffer<double>> M9;
        CircularBuffer<int> M9_control_CircularBuffer;
        Fork<CircularBuffer<double>> input_output;
        double SampleRate = 1e12;   // samples per second
        int CTLE_setting = 10;      // selected equalizer, 0..15
        char* corner = nullptr;     // process corner name; stored, never read

        static constexpr int kNumFilters = 16;

        Subnetwork_Subnetwork1() = default;
        Subnetwork_Subnetwork1(const Subnetwork_Subnetwork1&) = delete;
        Subnetwork_Subnetwork1& operator=(const Subnetwork_Subnetwork1&) = delete;
        ~Subnetwork_Subnetwork1();

        bool Setup();
        // Filter k of the bank (S0 .. S15).
        SDomainIIR& Filter(int k);
    };

    CircularBuffer<double> input;   // external ports; storage supplied by the driver
    CircularBuffer<double> output;
    double SampleRate = 1e12;       // samples per second
    int EQ = 0;                     // CTLE setting, 0..15
    int SamplesPerBit = 100;        // samples per unit interval
    char* Corner;                   // process corner name (owned array)
    Subnetwork_Subnetwork1 Subnetwork1;
    JitterGenerator J1;
    BesselLPF B2;

    // One-element connection arrays, owned by the model.
    double* m_pBuffer_input_To_Subnetwork1_input_output_input = nullptr;
    CircularBuffer<double> input_CirBuf;
    double* m_pBuffer_B2_Output_To_output = nullptr;
    CircularBuffer<double> output_CirBuf;
    double* m_pBuffer_J1_Output_To_B2_Input = nullptr;
    double* m_pBuffer_Subnetwork1_S0_m_dOutput_0__To_Subnetwork1_M9_input_0_ = nullptr;
    double* m_pBuffer_Subnetwork1_S1_m_dOutput_0__To_Subnetwork1_M9_input_1_ = nullptr;
    double* m_pBuffer_Subnetwork1_S2_m_dOutput_0__To_Subnetwork1_M9_input_2_ = nullptr;
    double* m_pBuffer_Subnetwork1_S3_m_dOutput_0__To_Subnetwork1_M9_input_3_ = nullptr;
    double* m_pBuffer_Subnetwork1_S4_m_dOutput_0__To_Subnetwork1_M9_input_4_ = nullptr;
    double* m_pBuffer_Subnetwork1_S5_m_dOutput_0__To_Subnetwork1_M9_input_5_ = nullptr;
    double* m_pBuffer_Subnetwork1_S6_m_dOutput_0__To_Subnetwork1_M9_input_6_ = nullptr;
    double* m_pBuffer_Subnetwork1_S7_m_dOutput_0__To_Subnetwork1_M9_input_7_ = nullptr;
    double* m_pBuffer_Subnetwork1_S8_m_dOutput_0__To_Subnetwork1_M9_input_8_ = nullptr;
    double* m_pBuffer_Subnetwork1_S9_m_dOutput_0__To_Subnetwork1_M9_input_9_ = nullptr;
    double* m_pBuffer_Subnetwork1_S10_m_dOutput_0__To_Subnetwork1_M9_input_10_ = nullptr;
    double* m_pBuffer_Subnetwork1_S11_m_dOutput_0__To_Subnetwork1_M9_input_11_ = nullptr;
    double* m_pBuffer_Subnetwork1_S12_m_dOutput_0__To_Subnetwork1_M9_input_12_ = nullptr;
    double* m_pBuffer_Subnetwork1_S13_m_dOutput_0__To_Subnetwork1_M9_input_13_ = nullptr;
    double* m_pBuffer_Subnetwork1_S14_m_dOutput_0__To_Subnetwork1_M9_input_14_ = nullptr;
    double* m_pBuffer_Subnetwork1_S15_m_dOutput_0__To_Subnetwork1_M9_input_15_ = nullptr;
    int* m_pBuffer_Subnetwork1_Dbl_to_Int_at_C9_output_output_To_Subnetwork1_M9_control_CircularBuffer = nullptr;
    double* m_pBuffer_Subnetwork1_C9_output_To_Subnetwork1_Dbl_to_Int_at_C9_output_input = nullptr;
    double* m_pBuffer_Subnetwork1_M9_output_To_J1_Input = nullptr;
    double* m_pBuffer_Subnetwork1_input_output_output_0__To_Subnetwork1_S0_m_dInput = nullptr;
    double* m_pBuffer_Subnetwork1_input_output_output_1__To_Subnetwork1_S1_m_dInput = nullptr;
    double* m_pBuffer_Subnetwork1_input_output_output_2__To_Subnetwork1_S2_m_dInput = nullptr;
    double* m_pBuffer_Subnetwork1_input_output_output_3__To_Subnetwork1_S3_m_dInput = nullptr;
    double* m_pBuffer_Subnetwork1_input_output_output_4__To_Subnetwork1_S4_m_dInput = nullptr;
    double* m_pBuffer_Subnetwork1_input_output_output_5__To_Subnetwork1_S5_m_dInput = nullptr;
    double* m_pBuffer_Subnetwork1_input_output_output_6__To_Subnetwork1_S6_m_dInput = nullptr;
    double* m_pBuffer_Subnetwork1_input_output_output_7__To_Subnetwork1_S7_m_dInput = nullptr;
    double* m_pBuffer_Subnetwork1_input_output_output_8__To_Subnetwork1_S8_m_dInput = nullptr;
    double* m_pBuffer_Subnetwork1_input_output_output_9__To_Subnetwork1_S9_m_dInput = nullptr;
    double* m_pBuffer_Subnetwork1_input_output_output_10__To_Subnetwork1_S10_m_dInput = nullptr;
    double* m_pBuffer_Subnetwork1_input_output_output_11__To_Subnetwork1_S11_m_dInput = nullptr;
    double* m_pBuffer_Subnetwork1_input_output_output_12__To_Subnetwork1_S12_m_dInput = nullptr;
    double* m_pBuffer_Subnetwork1_input_output_output_13__To_Subnetwork1_S13_m_dInput = nullptr;
    double* m_pBuffer_Subnetwork1_input_output_output_14__To_Subnetwork1_S14_m_dInput = nullptr;
    double* m_pBuffer_Subnetwork1_input_output_output_15__To_Subnetwork1_S15_m_dInput = nullptr;

    double SampleInterval;          // seconds, 1 / SampleRate

    KV2_RX();
    KV2_RX(const KV2_RX&) = delete;
    KV2_RX& operator=(const KV2_RX&) = delete;

    bool Setup() override;
    bool Initialize() override;
    bool Run() override;
    bool Finalize() override;
    ~KV2_RX() override;

    bool RunEquations();
    void DeleteBuffers();
    void DeleteArrayParameters();
    // True once Initialize has wired the graph (and until Finalize unwires it).
    bool IsWired() const { return m_pBuffer_input_To_Subnetwork1_input_output_input != nullptr; }

    // Block path: the same output, bit for bit, as n calls of Run with
    // wave[i] on the input port, written back into wave. Only the live
    // branch is evaluated (the selected filter, J1, B2): the multiplexer
    // passes nothing else on. Valid when the model initialised successfully
    // and EQ selects one of the sixteen filters; the ports and the live
    // blocks are left as the per-sample path leaves them.
    bool CanRunBlock() const;
    void RunBlock(double* wave, size_t n, SimdLevel level);
    // The selected filter's zero-input cycle, as far as the block path found it.
    const ZeroInputCycle& ZeroInputTail() const { return m_cZeroInput; }

private:
    // The live branch as one pipeline (FusedKernels) over wave[0..n), none
    // of whose chunks is all +0.0; returns the filter's last output.
    double RunPipeline(TwoBiquadRecurrence& cascade, double* wave, size_t n, SimdLevel level);

    static constexpr size_t kBlockChunk = 256;     // samples per pass; bounds the scratch
    std::vector<double> m_vBlockScratch;           // 2 * kBlockChunk: filter output, delay output
    std::vector<double> m_vPipeSamples;            // the pipeline's filter outputs, with history
    std::vector<double> m_vPipeDelayed;            // its delay outputs, with history
    ZeroInputCycle m_cZeroInput;                   // the selected filter under zero input
};

}  // namespace TesselModelBuilder
