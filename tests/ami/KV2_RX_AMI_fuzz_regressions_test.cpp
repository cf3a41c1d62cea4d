// Replays every saved fuzz input (fuzz/regressions/ and the seed corpus in
// fuzz/corpus/) the way the harnesses ran it: through the parameter parser
// and lookup with their properties checked, and as a whole session through
// the built KV2_RX_x64.so. A session runs in a child process, because the
// one legitimate way for it to end early is the abort on an overlong blank
// run, which must then be the only thing it prints.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "AmiLibrary.h"
#include "ChildProcess.h"
#include "amiparams/IbisParser/cmn.h"
#include "fuzz/AmiSession.h"
#include "fuzz/ParameterTextCheck.h"

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> SavedInputs() {
    std::vector<fs::path> files;
    for (const char* dir : {"regressions/params", "regressions/lifecycle", "corpus/params", "corpus/lifecycle"})
        if (fs::is_directory(fs::path(KV2_FUZZ_DIR) / dir))
            for (const fs::directory_entry& e : fs::directory_iterator(fs::path(KV2_FUZZ_DIR) / dir)) files.push_back(e.path());
    std::sort(files.begin(), files.end());
    return files;
}

}  // namespace

TEST(FuzzRegressions, EverySavedInputReplaysCleanly) {
    ASSERT_TRUE(ami_test::Ami().Loaded()) << dlerror();
    const kv2_fuzz::AmiEntryPoints ami{ami_test::Ami().init, ami_test::Ami().getWave, ami_test::Ami().close};
    const std::vector<fs::path> files = SavedInputs();
    ASSERT_FALSE(files.empty()) << KV2_FUZZ_DIR;
    for (const fs::path& file : files) {
        SCOPED_TRACE(file.string());
        std::ifstream stream(file, std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
        // As in the harness: long blank runs are the one deliberate abort.
        gbAllowAnyLineLength = 1;
        kv2_fuzz::CheckParameterText(bytes.c_str());  // aborts on a broken property
        gbAllowAnyLineLength = 0;

        const kv2_fuzz::SessionInput in =
            kv2_fuzz::DecodeSession(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
        const kv2_test::ChildResult r = kv2_test::RunInChild([&] {
            const kv2_fuzz::SessionOutcome first = kv2_fuzz::RunSession(ami, in);
            return kv2_fuzz::SameOutcome(first, kv2_fuzz::RunSession(ami, in)) ? 0 : 2;
        });
        if (r.bAborted) {  // only ever by more than 120 blanks in a row, and saying just that
            EXPECT_EQ(r.sStdout, "cmn.cpp:616:assertion failed.\n");
        } else {
            EXPECT_EQ(r.nExit, 0) << (r.bAborted ? "aborted" : "") << ", stderr ends: "
                                  << r.sStderr.substr(r.sStderr.size() - std::min<size_t>(r.sStderr.size(), 2000));
            EXPECT_EQ(r.sStdout, "");
        }
    }
}
