// amihost against bad input: option values out of range (negative ones
// included), requests too large for memory, a model whose output is NaN, an
// .ami nested deep enough to overflow a recursive reader, and waveform files
// that would shift, mislead or garble the terminal. Each ends in its own exit
// code and message.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

static std::string Slurp(const std::string& path) { std::ostringstream s; s << std::ifstream(path).rdbuf(); return s.str(); }

TEST(HostHostile, BadInputEndsInItsOwnCodeAndMessage) {
    char tmpl[] = "/tmp/amihost_hostile_XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    const std::string dir = tmpl, big = "amihost: bad parameter: --bits 2000000 x --samples-per-bit 100",
                      limit = " is more than the 134217728 samples amihost keeps in memory",
                      kHeader = "(KV2_RX (Reserved_Parameters (AMI_Version (Usage Info) (Type String) (Value \"7.0\")))";
    std::string deep = kHeader + "(Model_Specific ";
    for (int i = 0; i < 20000; ++i) deep += "(g ";
    deep += "(EQ (Usage In) (Type Integer) (Default 1))" + std::string(20002, ')');
    // A sample rate of 1e300 makes every filter tap NaN while AMI_Init succeeds.
    const std::string nan = kHeader + "(Model_Specific (SampleRate (Usage In) (Type Float) (Range 1e300 1 1e301))"
                            " (SamplesPerBit (Usage In) (Type Integer) (Value 32))))";
    const std::string wide = "--set 'Corner=\"Typ" + std::string(200, ' ') + "x\"'";
    const struct { const char* file; std::string text; const char* args; int code; std::string err; } cases[] = {
        {"", "", "--bits -1", 2, "--bits: must be a whole number from 1 to 1000000000, not -1"},
        {"", "", "--bits 1e6", 2, "--bits: must be a whole number from 1 to 1000000000, not 1e6"},
        {"", "", "--samples-per-bit 100001", 2, "--samples-per-bit: must be a whole number from 1 to 100000, not 100001"},
        {"", "", "--block -1", 2, "--block: must be a whole number from 1 to 134217728, not -1"},
        {"", "", "--ignore-bits -5", 2, "--ignore-bits: must be a whole number from 0 to 1000000000, not -5"},
        {"", "", "--bits 2000000", 6, big + limit},
        {"", "", "--bits 2000000 --sweep-eq", 6, big + " for each of 16 settings" + limit},
        {"n.ami", nan, "--bits 300 --samples-per-bit 32 --set SampleRate=1e300 -o n", 10,
         "amihost: non-finite output (the report above and n/summary.json say what the model returned)"},
        {"d.ami", deep, "", 5, "amihost: bad file: d.ami is not a valid .ami file: groups are nested deeper than 64 levels"},
        // The parser ends the process on a whitespace run longer than a line; quotes keep one.
        {"q.ami", kHeader + "(Model_Specific (Corner (Usage In) (Type String) (Value \"a" + std::string(127, '\f') + "b\"))))",
         "", 5, "amihost: bad file: q.ami is not a valid .ami file: a quoted text holds 127 blanks in a row, more than "
         "the 120 the parser reads"},
        {"", "", wide.c_str(), 6,
         "amihost: bad parameter: parameter Corner cannot hold 200 blanks in a row: the model's parser reads at most 120"},
        {"w1", "nan\n0.1\n", "", 5, "amihost: bad file: w1:1: not a finite number in \"nan\""},
        {"w2", "t,v\n0,0.1\n1e-12,0.2\n2.5e-12,0.3\n3e-12,0.1\n", "", 5,
         "amihost: bad file: waveform file w2: sample 3 at 2.5e-12 s breaks the even time step of 1e-12 s"},
        {"w4", "-1e308,0.1\n1e308,0.2\n", "", 5,
         "amihost: bad file: waveform file w4: the times span more than a number can hold"},
        {"w3", "0.1\n\x01\x1b[31m\xff 01234567890123456789012345678901234567890123456789012345\n", "", 5,
         "amihost: bad file: w3:2: not a number in \"\\x01\\x1B[31m\\xFF 0123456789012345678901234567890123456789012345678901...\""},
    };
    for (const auto& c : cases) {
        const std::string file = c.file;
        std::ofstream(dir + "/" + file, std::ios::binary) << c.text;
        const bool ami = file.find(".ami") != std::string::npos;
        const std::string cmd = "cd " + dir + " && '" AMIHOST_PATH "' --lib '" KV2_RX_SO_PATH "' --no-progress --ami " +
                                (ami ? file : KIT_AMI_PATH) + (file[0] == 'w' ? " --input " + file : "") + " " +
                                c.args + " > out.txt 2> err.txt";
        const int status = std::system(cmd.c_str());
        EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, c.code) << c.args << " " << file;
        const std::string err = Slurp(dir + "/err.txt");
        EXPECT_EQ(err.substr(0, err.find('\n')), c.err);
        EXPECT_TRUE(c.code != 10 || Slurp(dir + "/out.txt").find("\nmodel output: sample 1 is -nan, not finite\n") != std::string::npos);
    }
    std::system(("rm -rf '" + dir + "'").c_str());
}
