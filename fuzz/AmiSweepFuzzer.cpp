// libFuzzer harness for amihost's .ami reading: the input is parsed as an
// .ami file with amihost's own line-length setting, its parameter string is
// built, and every input parameter's sweep values are listed and set, as
// --sweep-param would. A HostError is the expected refusal; anything else
// (a crash, an abort, a sanitizer report, memory without bound) is the fault.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/ibis/AmiFile.h"
#include "tools/base/HostError.h"
#include "tools/ibis/ParameterString.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    try {
        const amihost::AmiFile ami = amihost::AmiFile::Parse(text, "f.ami");
        amihost::ParameterString base(ami);
        (void)base.Text();
        for (const amihost::AmiParameter& p : ami.ModelSpecific()) {
            if (!p.IsInput()) continue;
            try {
                const std::vector<std::string> values = base.SweepValues(p.sPath);
                // The first values are enough to reach Set; all of them would
                // make a wide Range the fuzzer's bottleneck.
                for (size_t i = 0; i < values.size() && i < 64; ++i) {
                    amihost::ParameterString one = base;
                    one.Set(p.sPath, values[i]);
                    (void)one.Text();
                }
            } catch (const amihost::HostError&) {
            }
        }
    } catch (const amihost::HostError&) {
    }
    return 0;
}
