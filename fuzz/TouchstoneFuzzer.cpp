// libFuzzer harness for amihost's Touchstone channels: the input is written
// as a 2-port or 4-port file (the first byte chooses) and made into the
// channel a 10 Gb/s run at 1 ps would use, with its loss and warnings. A
// HostError is the expected refusal; anything else is the fault.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>

#include "tools/base/HostError.h"
#include "tools/signal/TouchstoneChannel.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const bool four = data[0] & 1;
    const std::string path = "/tmp/kv2-fuzz-" + std::to_string(getpid()) + (four ? ".s4p" : ".s2p");
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(data + 1), static_cast<long>(size - 1));
    try {
        const amihost::TouchstoneChannel channel(path, four ? "13-24" : "", 1e-12);
        (void)channel.Warnings(1e10);
        (void)channel.LossDb(5e9);
        (void)channel.Describe();
    } catch (const amihost::HostError&) {
    }
    unlink(path.c_str());
    return 0;
}
