// libFuzzer harness for the parameter tree parser and the typed lookup:
// every input, cut at its first NUL, is parsed, walked, looked up and freed
// (ParameterTextCheck says what must hold).
#include <cstddef>
#include <cstdint>
#include <string>

#include "amiparams/IbisParser/cmn.h"
#include "fuzz/ParameterTextCheck.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // Long blank runs are otherwise a deliberate abort; the fuzzer is after
    // everything else.
    gbAllowAnyLineLength = 1;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    kv2_fuzz::CheckParameterText(text.c_str());
    return 0;
}
