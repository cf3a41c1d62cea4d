// libFuzzer harness for amihost's waveform files (--input): the input is
// parsed as a file's text. A HostError is the expected refusal; a crash, a
// sanitizer report, or a waveform with a time step that is not positive and
// finite is the fault.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "tools/base/HostError.h"
#include "tools/signal/WaveformFile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    try {
        const amihost::Waveform w = amihost::WaveformFile::Parse(text, "w.csv");
        if (w.bHasTime && !(std::isfinite(w.dTimeStep) && w.dTimeStep > 0)) std::abort();
        for (double v : w.vValues)
            if (!std::isfinite(v)) std::abort();
    } catch (const amihost::HostError&) {
    }
    return 0;
}
