// AmiLibrary and ModelRun against the built receiver: the kit's default
// parameter string initialises it with nothing to report, and the host's
// block size never changes the equalized samples.
#include "tools/ModelRun.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>

#include "tools/AmiFile.h"
#include "tools/AmiLibrary.h"
#include "tools/Channel.h"
#include "tools/HostError.h"
#include "tools/ParameterString.h"
#include "tools/Prbs.h"

using namespace amihost;

namespace {

std::vector<double> ChannelPrbs(size_t bits, int spb) {
    Prbs prbs(15);
    std::vector<double> wave;
    for (uint8_t b : prbs.Bits(bits)) wave.insert(wave.end(), spb, b ? 0.5 : -0.5);
    Channel(Channel::DefaultCorners(), 1e-12).Process(wave);
    return wave;
}

}  // namespace

TEST(ModelRun, KitDefaultsInitialiseTheModelWithNothingToReport) {
    const AmiLibrary lib(KV2_RX_SO_PATH);
    std::string params = ParameterString(AmiFile::Load(KIT_AMI_PATH)).Text();
    std::vector<double> impulse(64, 0.0);
    impulse[0] = 1.0;
    char sentinel[] = "untouched";
    char* msg = sentinel;
    char* out = nullptr;
    void* handle = nullptr;
    const long ok = lib.Init(impulse.data(), 64, 0, 1e-12, 100e-12, &params[0], &out, &handle, &msg);
    EXPECT_EQ(ok, 1);
    EXPECT_EQ(msg, sentinel) << "message: " << msg;
    EXPECT_EQ(out, nullptr);
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(lib.Close(handle), 1);
}

TEST(ModelRun, BlockSizeNeverChangesTheOutput) {
    const AmiLibrary lib(KV2_RX_SO_PATH);
    ParameterString params(AmiFile::Load(KIT_AMI_PATH));
    params.Set("EQ", "9");
    params.Set("SamplesPerBit", "32");
    RunSettings s;
    s.sParameters = params.Text();
    s.dSampleInterval = 1e-12;
    s.dBitTime = 32e-12;
    const std::vector<double> input = ChannelPrbs(300, 32);

    s.nBlock = input.size();
    const RunResult whole = ModelRun::Run(lib, s, input);
    ASSERT_EQ(whole.iInitResult, 1);
    EXPECT_FALSE(whole.bHasMessage);
    EXPECT_FALSE(whole.bImpulseChanged);
    EXPECT_EQ(whole.iGetWaveResult, 1);
    EXPECT_EQ(whole.nGetWaveCalls, 1u);
    EXPECT_EQ(whole.nClockTimes, 0u);
    EXPECT_EQ(whole.iCloseResult, 1);
    EXPECT_NE(whole.vOutput, input);

    for (size_t block : {size_t{1}, size_t{813}, size_t{4096}}) {
        s.nBlock = block;
        std::atomic<size_t> progress{0};
        const RunResult r = ModelRun::Run(lib, s, input, &progress);
        EXPECT_EQ(r.nGetWaveCalls, (input.size() + block - 1) / block);
        EXPECT_EQ(progress.load(), input.size());
        ASSERT_EQ(r.vOutput.size(), whole.vOutput.size());
        for (size_t i = 0; i < r.vOutput.size(); ++i)
            if (r.vOutput[i] != whole.vOutput[i]) {
                ADD_FAILURE() << "block " << block << ", sample " << i << ": " << std::hexfloat << r.vOutput[i]
                              << " != " << whole.vOutput[i];
                break;
            }
    }
}

TEST(ModelRun, AFailedInitIsStillClosedAndReported) {
    // SamplesPerBit below 16 makes the model's Setup fail.
    const AmiLibrary lib(KV2_RX_SO_PATH);
    RunSettings s;
    s.sParameters = "(KV2_RX (SampleRate 1e12) (EQ 0) (SamplesPerBit 15) (Corner \"Typ\"))";
    s.dSampleInterval = 1e-12;
    s.dBitTime = 15e-12;
    const RunResult r = ModelRun::Run(lib, s, std::vector<double>(100, 0.5));
    EXPECT_EQ(r.iInitResult, 0);
    EXPECT_TRUE(r.bHasMessage);
    EXPECT_EQ(r.sMessage, "Error occurred in KV2_RX::Setup(). ");
    EXPECT_EQ(r.nGetWaveCalls, 0u);
    EXPECT_EQ(r.iCloseResult, 1);
}

TEST(AmiLibraryLoader, MissingFilesAndSymbolsAreNamed) {
    try {
        AmiLibrary lib("/nonexistent/model.so");
        ADD_FAILURE();
    } catch (const HostError& e) {
        EXPECT_EQ(e.Code(), ExitCode::kMissingLibrary);
        EXPECT_STREQ(e.what(), "model library not found: /nonexistent/model.so");
    }
    try {
        AmiLibrary lib(STUB_PARTIAL_PATH);
        ADD_FAILURE();
    } catch (const HostError& e) {
        EXPECT_EQ(e.Code(), ExitCode::kMissingSymbols);
        EXPECT_EQ(std::string(e.what()), std::string("model library ") + STUB_PARTIAL_PATH + " does not export: AMI_GetWave");
    }
}
