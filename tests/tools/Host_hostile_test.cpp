// amihost against bad input: option values out of range (negative ones
// included), requests too large for memory, a model whose output is NaN,
// .ami files nested beyond the limit and waveform files that would shift,
// mislead or garble the terminal. Each ends in its own exit code and message.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "tools/AmiFile.h"
#include "tools/HostError.h"
#include "tools/WaveformFile.h"

namespace {

struct Outcome { int code; std::string out, err; };

std::string Slurp(const std::string& path) {
    std::ostringstream s;
    s << std::ifstream(path, std::ios::binary).rdbuf();
    return s.str();
}

const std::string kDir = [] {
    char tmpl[] = "/tmp/amihost_hostile_XXXXXX";
    return std::string(mkdtemp(tmpl));
}();
const struct RemoveDir {
    ~RemoveDir() { std::system(("rm -rf '" + kDir + "'").c_str()); }
} kRemoveDir;

std::string Write(const std::string& name, const std::string& text) {
    std::ofstream(kDir + "/" + name, std::ios::binary) << text;
    return kDir + "/" + name;
}

// amihost on the kit with these arguments added, from the temporary folder.
Outcome Amihost(const std::string& args, const std::string& ami = KIT_AMI_PATH) {
    const std::string cmd = "cd " + kDir + " && '" AMIHOST_PATH "' --lib '" KV2_RX_SO_PATH "' --ami '" + ami +
                            "' --no-progress " + args + " > out.txt 2> err.txt";
    const int status = std::system(cmd.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, Slurp(kDir + "/out.txt"), Slurp(kDir + "/err.txt")};
}

// An .ami whose deepest group, a leaf of EQ, is `depth` levels down.
std::string Nested(size_t depth) {
    std::string groups;
    for (size_t i = 4; i < depth; ++i) groups += "(g ";
    return "(KV2_RX (Reserved_Parameters (AMI_Version (Usage Info) (Type String) (Value \"7.0\")))(Model_Specific " +
           groups + "(EQ (Usage In) (Type Integer) (Default 1))" + std::string(depth - 4, ')') + "))";
}

}  // namespace

TEST(HostHostile, OptionsOutOfRangeAreRefusedByName) {
    const std::string big = "amihost: bad parameter: --bits 2000000 x --samples-per-bit 100";
    const struct { const char* args; int code; std::string err; } cases[] = {
        {"--bits -1", 2, "--bits: Value -1 not in range 1 to 1000000000\n"},
        {"--bits 18446744073709551615", 2, "--bits: Value 18446744073709551615 not in range 1 to 1000000000\n"},
        {"--samples-per-bit 100001", 2, "--samples-per-bit: Value 100001 not in range 1 to 100000\n"},
        {"--block -1", 2, "--block: Value -1 not in range 1 to 134217728\n"},
        {"--block 134217729", 2, "--block: Value 134217729 not in range 1 to 134217728\n"},
        {"--ignore-bits -5", 2, "--ignore-bits: Value -5 not in range 0 to 1000000000\n"},
        {"--jobs 0", 2, "--jobs: Value 0 not in range 1 to 1024\n"},
        {"--bits 2000000", 6, big + " is more than the 134217728 samples amihost keeps in memory\n"},
        {"--bits 2000000 --sweep-eq", 6, big + " for each of 16 settings is more than the 134217728 samples amihost keeps in memory\n"},
    };
    for (const auto& c : cases) {
        const Outcome r = Amihost(c.args);
        EXPECT_EQ(r.code, c.code) << c.args;
        EXPECT_EQ(r.err.substr(0, r.err.find('\n') + 1), c.err) << c.args;
    }
}

TEST(HostHostile, NonFiniteOutputFailsTheRun) {
    // A sample rate of 1e300 makes every filter tap NaN while AMI_Init succeeds.
    std::string ami = Slurp(KIT_AMI_PATH);
    const std::string range = "(Range 1e12 1e10 1e13)";
    ASSERT_NE(ami.find(range), std::string::npos);
    const std::string path = Write("nan.ami", ami.replace(ami.find(range), range.size(), "(Range 1e12 1e10 1e301)"));
    const Outcome r = Amihost("--set SampleRate=1e300 --bits 300 --samples-per-bit 32 --set SamplesPerBit=32 -o nan", path);
    EXPECT_EQ(r.code, 10);
    EXPECT_NE(r.out.find("\nmodel output: sample 1 is -nan, not finite\n"), std::string::npos) << r.out;
    EXPECT_EQ(r.err, "amihost: non-finite output (the report above and nan/summary.json say what the model returned)\n");
    EXPECT_NE(Slurp(kDir + "/nan/summary.json").find("\"first_non_finite_sample\": 1,"), std::string::npos);
}

TEST(HostHostile, NestingBeyondTheLimitIsRefused) {
    EXPECT_NO_THROW(amihost::AmiFile::Parse(Nested(64), "ok.ami"));
    try {
        amihost::AmiFile::Parse(Nested(65), "deep.ami");
        ADD_FAILURE() << "65 levels accepted";
    } catch (const amihost::HostError& e) {
        EXPECT_EQ(e.Code(), amihost::ExitCode::kBadFile);
        EXPECT_STREQ(e.what(), "deep.ami is not a valid .ami file: groups are nested deeper than 64 levels");
    }
    const Outcome r = Amihost("", Write("deep.ami", Nested(20000)));  // deep enough to overflow a recursive reader
    EXPECT_EQ(r.code, 5);
    EXPECT_EQ(r.err, "amihost: bad file: " + kDir + "/deep.ami is not a valid .ami file: groups are nested deeper than 64 levels\n");
}

TEST(HostHostile, WaveformReaderNeitherShiftsNorMisleadsNorGarbles) {
    const struct { const char* text; std::string error; } cases[] = {
        {"nan\n0.1\n0.2\n", "@:1: not a finite number in \"nan\""},
        {"t,v\n0,0.1\n1e-12,0.2\n2.5e-12,0.3\n3e-12,0.1\n",
         "waveform file @: sample 3 at 2.5e-12 s breaks the even time step of 1e-12 s"},
        {"0.1\n\x01\x1b[31m\xff 0123456789012345678901234567890123456789012345678901234567890\n",
         "@:2: not a number in \"\\x01\\x1B[31m\\xFF 0123456789012345678901234567890123456789012345678901...\""},
    };
    for (const auto& c : cases) {
        const std::string path = Write("wave.txt", c.text);
        try {
            amihost::WaveformFile::Read(path);
            ADD_FAILURE() << c.text;
        } catch (const amihost::HostError& e) {
            std::string expected = c.error;
            EXPECT_EQ(e.what(), expected.replace(expected.find('@'), 1, path));
        }
    }
}
