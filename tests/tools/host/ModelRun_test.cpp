// AmiLibrary and ModelRun against the built receiver: calls and progress are
// counted, and the host's block size never changes the equalized samples.
// (That the kit's parameter string initialises the model with nothing to
// report is checked on amihost's single run, Host_test.)
#include "tools/host/ModelRun.h"

#include <gtest/gtest.h>

#include <string>

#include "SameBits.h"
#include "tools/host/AmiLibrary.h"
#include "tools/signal/Channel.h"
#include "tools/signal/Prbs.h"

using namespace amihost;

TEST(ModelRun, CallsAreCountedAndBlockSizeNeverChangesTheOutput) {
    const AmiLibrary lib(KV2_RX_SO_PATH);
    RunSettings s;
    s.sParameters = "(KV2_RX (SampleRate 1e12) (EQ 9) (SamplesPerBit 32) (Corner \"Typ\"))";
    s.dSampleInterval = 1e-12, s.dBitTime = 32e-12;
    std::vector<double> input;  // PRBS15 through the default channel
    for (uint8_t b : Prbs(15).Bits(300)) input.insert(input.end(), 32, b ? 0.5 : -0.5);
    Channel(Channel::DefaultCorners(), 1e-12).Process(input);
    std::vector<RunResult> runs;
    for (size_t block : {input.size(), size_t{813}}) {
        s.nBlock = block;
        std::atomic<size_t> progress{0};
        runs.push_back(ModelRun::Run(lib, s, input, &progress));
        const RunResult& r = runs.back();
        EXPECT_TRUE(r.iInitResult == 1 && r.iGetWaveResult == 1 && r.iCloseResult == 1);
        EXPECT_EQ(r.nGetWaveCalls, (input.size() + block - 1) / block);
        EXPECT_TRUE(progress.load() == input.size() && r.nClockTimes == 0u);  // the model writes no clock times
    }
    EXPECT_NE(runs[0].vOutput, input);
    EXPECT_TRUE(kv2_test::SameBits(runs[1].vOutput, runs[0].vOutput));
}
