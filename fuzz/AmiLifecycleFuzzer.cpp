// libFuzzer harness for a whole simulator session: AMI_Init with a fuzzed
// parameter text and timing, AMI_GetWave over a fuzzed waveform in fuzzed
// block sizes, AMI_Close (input layout in AmiSession.h). Each session runs
// twice and must give the same bits both times: fixed seeds, no state
// shared between instances, no uninitialised reads that change the output.
#include <cstddef>
#include <cstdint>

#include "ami/KV2_RX_AMI.h"
#include "amiparams/IbisParser/cmn.h"
#include "fuzz/AmiSession.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    gbAllowAnyLineLength = 1;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const kv2_fuzz::AmiEntryPoints ami{&AMI_Init, &AMI_GetWave, &AMI_Close};
    const kv2_fuzz::SessionInput in = kv2_fuzz::DecodeSession(data, size);
    const kv2_fuzz::SessionOutcome first = kv2_fuzz::RunSession(ami, in);
    const kv2_fuzz::SessionOutcome second = kv2_fuzz::RunSession(ami, in);
    if (!kv2_fuzz::SameOutcome(first, second)) kv2_fuzz::SessionFailure("a repeated session differs");
    return 0;
}
