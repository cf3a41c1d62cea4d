// Replays every saved fuzz input (fuzz/regressions/ and the seed corpus in
// fuzz/corpus/) the way the harnesses ran it: through the parameter parser
// and lookup with their properties checked, and as a whole session through
// the built KV2_RX_x64.so. A session runs in a child process, because the
// one legitimate way for it to end early is the abort on an overlong blank
// run, which must then be the only thing it prints.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "amiparams/IbisParser/cmn.h"
#include "fuzz/AmiSession.h"
#include "fuzz/ParameterTextCheck.h"
#include "tests/ami/ChildRun.h"

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> SavedInputs() {
    std::vector<fs::path> files;
    for (const char* dir : {"regressions/params", "regressions/lifecycle", "corpus/params", "corpus/lifecycle"}) {
        const fs::path folder = fs::path(KV2_FUZZ_DIR) / dir;
        if (!fs::is_directory(folder)) continue;
        for (const fs::directory_entry& e : fs::directory_iterator(folder))
            if (e.is_regular_file()) files.push_back(e.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::string Bytes(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// True when the text holds more than 120 blanks in a row somewhere.
bool HasOverlongBlankRun(const std::string& text) {
    size_t run = 0;
    for (char c : text) {
        run = kv2_fuzz::IsBlank(c) ? run + 1 : 0;
        if (run > 120) return true;
    }
    return false;
}

kv2_fuzz::AmiEntryPoints LoadedLibrary() {
    kv2_fuzz::AmiEntryPoints ami{nullptr, nullptr, nullptr};
    void* lib = dlopen(KV2_RX_SO_PATH, RTLD_NOW | RTLD_LOCAL);
    if (lib == nullptr) return ami;
    ami.init = reinterpret_cast<kv2_fuzz::AmiInitFn>(dlsym(lib, "AMI_Init"));
    ami.getWave = reinterpret_cast<kv2_fuzz::AmiGetWaveFn>(dlsym(lib, "AMI_GetWave"));
    ami.close = reinterpret_cast<kv2_fuzz::AmiCloseFn>(dlsym(lib, "AMI_Close"));
    return ami;
}

}  // namespace

TEST(FuzzRegressions, EverySavedInputKeepsTheParserProperties) {
    const std::vector<fs::path> files = SavedInputs();
    ASSERT_FALSE(files.empty()) << KV2_FUZZ_DIR;
    // As in the harness: long blank runs are the one deliberate abort.
    gbAllowAnyLineLength = 1;
    for (const fs::path& file : files) {
        SCOPED_TRACE(file.string());
        const std::string bytes = Bytes(file);
        kv2_fuzz::CheckParameterText(bytes.c_str());  // aborts on a broken property
    }
    gbAllowAnyLineLength = 0;
}

TEST(FuzzRegressions, EverySavedSessionRunsCleanlyThroughTheLibrary) {
    const kv2_fuzz::AmiEntryPoints ami = LoadedLibrary();
    ASSERT_NE(ami.init, nullptr) << dlerror();
    for (const fs::path& file : SavedInputs()) {
        const std::string bytes = Bytes(file);
        const kv2_fuzz::SessionInput in =
            kv2_fuzz::DecodeSession(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());

        const ami_test::ChildResult r = ami_test::InChild([&] {
            const kv2_fuzz::SessionOutcome first = kv2_fuzz::RunSession(ami, in);
            const kv2_fuzz::SessionOutcome second = kv2_fuzz::RunSession(ami, in);
            return kv2_fuzz::SameOutcome(first, second) ? 0 : 2;
        });
        std::string err = r.sStderr;
        if (err.size() > 2000) err = "..." + err.substr(err.size() - 2000);
        if (r.bAborted && HasOverlongBlankRun(in.sParameters)) {
            EXPECT_EQ(r.sStdout, "cmn.cpp:616:assertion failed.\n") << file;
        } else {
            EXPECT_EQ(r.nExit, 0) << file << (r.bAborted ? " (aborted)" : "") << ", stdout: " << r.sStdout
                                  << ", stderr: " << err;
            EXPECT_EQ(r.sStdout, "") << file;
        }
    }
}
