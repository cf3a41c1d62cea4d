// KV2_RX in-process: parameter mapping, failure paths, selection of the
// equalizer, corner independence, causality and teardown.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "model/KV2_RX.h"

using namespace TesselModelBuilder;

namespace {

// A model with its external ports wired the way the entry points wire them.
class Harness {
public:
    Harness() : model(std::make_unique<KV2_RX>()) {
        model->input.SetBuffer(&in_, 1, 1, 0);
        model->output.SetBuffer(&out_, 1, 1, 0);
    }
    bool Start() { return model->Setup() && model->Initialize(); }
    double Step(double x, bool* ok = nullptr) {
        in_ = x;
        const bool result = model->Run();
        if (ok != nullptr) *ok = result;
        return out_;
    }
    std::vector<double> Process(const std::vector<double>& xs) {
        std::vector<double> ys;
        for (double x : xs) ys.push_back(Step(x));
        return ys;
    }
    std::unique_ptr<KV2_RX> model;

private:
    double in_ = 0.0;
    double out_ = 0.0;
};

std::vector<double> Noise(size_t n, unsigned seed) {
    std::mt19937 rng(seed);
    std::normal_distribution<double> normal(0.0, 0.3);
    std::vector<double> xs(n);
    for (double& x : xs) x = normal(rng);
    return xs;
}

}  // namespace

TEST(KV2_RX, DefaultsSetUpAndInitialize) {
    Harness h;
    EXPECT_EQ(h.model->SampleRate, 1e12);
    EXPECT_EQ(h.model->EQ, 0);
    EXPECT_EQ(h.model->SamplesPerBit, 100);
    EXPECT_STREQ(h.model->Corner, "Typ");
    testing::internal::CaptureStderr();
    EXPECT_TRUE(h.Start());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(h.model->SampleInterval, 1e-12);
    EXPECT_EQ(h.model->Subnetwork1.CTLE_setting, 0);
    EXPECT_EQ(h.model->J1.SamplesPerBit, 100);
    EXPECT_EQ(h.model->Subnetwork1.M9.input.m_iSize, 16u);
    EXPECT_EQ(h.model->Subnetwork1.input_output.output.m_iSize, 16u);
}

TEST(KV2_RX, SetupFailuresAreReportedByTheBlocks) {
    struct Case { int samplesPerBit; double sampleRate; bool ok; const char* stderrText; };
    const Case cases[] = {
        {16, 1e12, true, ""},
        {15, 1e12, false,
         "Latency must be lager than or equal to 0 and smaller than or equal to SamplesPerBit / 2.\n"},
        {100, 0.0, false, "SampleRate must be >0\n"},
        {100, -1.0, false, "SampleInterval must be a positive number.\nSampleRate must be >0\n"},
    };
    for (const Case& c : cases) {
        Harness h;
        h.model->SamplesPerBit = c.samplesPerBit;
        h.model->SampleRate = c.sampleRate;
        testing::internal::CaptureStderr();
        EXPECT_EQ(h.model->Setup(), c.ok);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), c.stderrText);
    }
}

TEST(KV2_RX, EqualizerOutOfRangeFailsEveryRunAndWritesNoOutput) {
    for (int eq : {16, -1}) {
        Harness h;
        h.model->EQ = eq;
        ASSERT_TRUE(h.Start());
        const std::string line = "Control input signal value is equal to " + std::to_string(eq) +
                                 ".  There are 16 inputs connected.  The valid control input range is [0,15].\n";
        testing::internal::CaptureStderr();
        bool ok1 = true, ok2 = true;
        const double y1 = h.Step(0.5, &ok1);
        const double y2 = h.Step(-0.5, &ok2);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), line + line);
        EXPECT_FALSE(ok1);
        EXPECT_FALSE(ok2);
        EXPECT_EQ(y1, 0.0);
        EXPECT_EQ(y2, 0.0);
    }
}

TEST(KV2_RX, TheSelectedFilterIsWhatReachesTheJitterBlock) {
    Harness h;
    h.model->EQ = 10;
    ASSERT_TRUE(h.Start());
    KV2_RX& m = *h.model;
    int differsFromS3 = 0;
    for (double x : Noise(400, 3)) {
        h.Step(x);
        const double muxOut = *m.m_pBuffer_Subnetwork1_M9_output_To_J1_Input;
        ASSERT_EQ(muxOut, *m.m_pBuffer_Subnetwork1_S10_m_dOutput_0__To_Subnetwork1_M9_input_10_);
        differsFromS3 += muxOut != *m.m_pBuffer_Subnetwork1_S3_m_dOutput_0__To_Subnetwork1_M9_input_3_;
    }
    EXPECT_GT(differsFromS3, 300);
}

TEST(KV2_RX, CornerNamesChangeNothingAtAnyLength) {
    const std::vector<double> xs = Noise(2000, 5);
    std::vector<std::vector<double>> outputs;
    for (const char* corner : {"Typ", "Slow", "a_corner_name_far_longer_than_ten_characters"}) {
        Harness h;
        delete[] h.model->Corner;
        h.model->Corner = new char[std::strlen(corner) + 1];
        std::strcpy(h.model->Corner, corner);
        h.model->SamplesPerBit = 32;
        ASSERT_TRUE(h.Start());
        EXPECT_EQ(std::strlen(h.model->Subnetwork1.corner), std::min<size_t>(9, std::strlen(corner)));
        outputs.push_back(h.Process(xs));
    }
    EXPECT_EQ(outputs[0], outputs[1]);
    EXPECT_EQ(outputs[0], outputs[2]);
}

TEST(KV2_RX, OutputDependsOnlyOnPastAndPresentInput) {
    std::vector<double> a = Noise(1500, 9), b = a;
    for (size_t i = 1000; i < b.size(); ++i) b[i] = -b[i] + 0.25;
    Harness ha, hb;
    ASSERT_TRUE(ha.Start());
    ASSERT_TRUE(hb.Start());
    const std::vector<double> ya = ha.Process(a), yb = hb.Process(b);
    EXPECT_TRUE(std::equal(ya.begin(), ya.begin() + 1000, yb.begin()));
    EXPECT_NE(ya[1010], yb[1010]);
}

TEST(KV2_RX, ReinitialisationRewiresAndFinalizeReleasesEveryBuffer) {
    const std::vector<double> xs = Noise(300, 13);
    Harness h;
    ASSERT_TRUE(h.Start());
    h.Process(xs);
    ASSERT_TRUE(h.model->Initialize());  // frees the old arrays, wires new ones
    EXPECT_NE(h.model->m_pBuffer_J1_Output_To_B2_Input, nullptr);
    EXPECT_EQ(h.model->B2.input.m_pBuffer, h.model->m_pBuffer_J1_Output_To_B2_Input);
    h.Process(xs);
    EXPECT_TRUE(h.model->IsWired());
    EXPECT_TRUE(h.model->Finalize());
    EXPECT_FALSE(h.model->IsWired());
    EXPECT_EQ(h.model->m_pBuffer_Subnetwork1_Dbl_to_Int_at_C9_output_output_To_Subnetwork1_M9_control_CircularBuffer,
              nullptr);
    EXPECT_EQ(h.model->m_pBuffer_Subnetwork1_input_output_output_15__To_Subnetwork1_S15_m_dInput, nullptr);
    h.model.reset();  // destruction after Finalize frees nothing twice (checked under the sanitizers)
}
