// amihost's analyses as a user runs them: rate matching reported in the
// summary, the datasheet of the kit, the statistical eye next to the
// bit-by-bit one, a Touchstone channel, and the exit code and message of
// every way they can be misused or fed bad input: option values out of range,
// requests too large for memory, a model whose output is NaN, an .ami nested
// deep enough to overflow a recursive reader, and waveform files that would
// shift, mislead or garble the terminal.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct Result { int code; std::string out, err; };

const std::string kDir = ::testing::TempDir() + "amihost_analysis";

Result Amihost(std::vector<std::string> args, const std::string& ami = KIT_AMI_PATH) {
    args.insert(args.begin(), {"--lib", KV2_RX_SO_PATH, "--ami", ami, "--no-progress"});
    std::string cmd = "mkdir -p '" + kDir + "' && cd '" + kDir + "' && '" AMIHOST_PATH "'";
    for (const std::string& a : args) cmd += " '" + a + "'";
    // Named per process: ctest runs this suite's tests side by side in one folder.
    const std::string tag = std::to_string(getpid());
    const int status = std::system((cmd + " > out" + tag + ".txt 2> err" + tag + ".txt").c_str());
    auto slurp = [](const std::string& p) { std::ostringstream s; s << std::ifstream(p).rdbuf(); return s.str(); };
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, slurp(kDir + "/out" + tag + ".txt"), slurp(kDir + "/err" + tag + ".txt")};
}

nlohmann::json Summary(const std::string& out) { return nlohmann::json::parse(std::ifstream(kDir + "/" + out + "/summary.json")); }

}  // namespace

TEST(HostAnalysis, MisuseGetsItsExitCodeAndMessage) {
    ASSERT_EQ(std::system(("mkdir -p '" + kDir + "'").c_str()), 0);
    std::ofstream(kDir + "/bad.s2p") << "# GHz S RI\n1 0 0 1\n";
    std::ofstream(kDir + "/w.txt") << "0\n1\n";
    const struct { std::vector<std::string> args; int code; std::string err; } cases[] = {
        {{"--channel", "none.s4p"}, 5, "amihost: bad file: Touchstone file none.s4p cannot be read: No such file or directory\n"},
        {{"--ibs", "none.ibs"}, 5, "amihost: bad file: IBIS file none.ibs cannot be read: No such file or directory\n"},
        {{"--channel", "bad.s2p"}, 5, "amihost: bad file: bad.s2p:2: incomplete data: the last frequency point has 4 of 9 numbers\n"},
        {{"--channel", "bad.s2p", "--ports", "1-2"}, 6, "amihost: bad parameter: --ports 1-2 is not a pairing such as 13-24, 12-34 or 1,3-2,4\n"},
        {{"--stat-eye", "--input", "w.txt"}, 6,
         "amihost: bad parameter: --stat-eye needs the built-in pattern: the channel of --input is unknown\n"},
        {{"--stat-eye", "--noise", "-1"}, 6, "amihost: bad parameter: --noise and --rj must be zero or positive\n"},
        // Numbers at the edges, refused before the model or the eye sees them.
        {{"--stat-eye", "--rj", "inf"}, 6, "amihost: bad parameter: --rj must be at most a quarter of the bit time (2.5e-11 s)\n"},
        {{"--stat-eye", "--rj", "1"}, 6, "amihost: bad parameter: --rj must be at most a quarter of the bit time (2.5e-11 s)\n"},
        {{"--stat-eye", "--noise", "nan"}, 6, "amihost: bad parameter: --noise and --rj must be zero or positive\n"},
        {{"--bit-rate", "1e308"}, 6, "amihost: bad parameter: --bit-rate must be from 1 to 1e14 bit/s\n"},
        {{"--datasheet", "--bit-rate", "0"}, 6, "amihost: bad parameter: --bit-rate must be from 1 to 1e14 bit/s\n"},
        {{"--amplitude", "1e-310"}, 6, "amihost: bad parameter: --amplitude must be from 1e-9 to 1e6 V\n"},
        {{"--samples-per-bit", "8"}, 6,
         "amihost: bad parameter: parameter SamplesPerBit cannot be 8: its range is 16 to 100000 (the host's timing "
         "asks for SamplesPerBit 8; change --bit-rate / --samples-per-bit, or --set SamplesPerBit yourself)\n"},
        {{"--datasheet", "--sweep-param", "Corner", "--set", "SamplesPerBit=15"}, 6,
         "amihost: bad parameter: parameter SamplesPerBit cannot be 15: its range is 16 to 100000\n"},
    };
    for (const auto& c : cases) {
        const Result r = Amihost(c.args);
        EXPECT_EQ(r.code, c.code) << c.args[0] << "\n" << r.err;
        EXPECT_EQ(r.err, c.err);
    }
    // A setting the model itself refuses stops the datasheet with AMI_Init's word.
    std::ostringstream kit;
    kit << std::ifstream(KIT_AMI_PATH).rdbuf();
    std::string wide = kit.str();
    wide.replace(wide.find("(Range 100 16 100000)"), 21, "(Range 100 1 100000)");
    std::ofstream(kDir + "/wide.ami") << wide;
    const Result r = Amihost({"--datasheet", "--set", "SamplesPerBit=15"}, kDir + "/wide.ami");
    EXPECT_EQ(r.code, 7);
    EXPECT_EQ(r.err.substr(r.err.find("amihost:")),
              "amihost: AMI_Init failed: AMI_Init failed on the step-response run of (KV2_RX (SampleRate 1e12) (EQ 0) "
              "(SamplesPerBit 15) (Corner \"Typ\")) (message: \"Error occurred in KV2_RX::Setup(). \")\n");
    EXPECT_NE(r.out.find("WARNING: SamplesPerBit is 15 but the waveform has 100 samples per bit"), std::string::npos);
}

TEST(HostAnalysis, RateDatasheetAndStatisticalEyeOfTheKit) {
    // 32 samples per bit: the host tells the model, or warns when told not to.
    Result r = Amihost({"--samples-per-bit", "32", "--bits", "600", "--stat-eye", "-o", "matched"});
    ASSERT_EQ(r.code, 0) << r.err;
    nlohmann::json s = Summary("matched");
    EXPECT_EQ(s["runs"][0]["parameters"], "(KV2_RX (SampleRate 320000000000) (EQ 0) (SamplesPerBit 32) (Corner \"Typ\"))");
    EXPECT_TRUE(s["rate_match"]["warnings"].empty());
    // The statistical eye at 1e-6 never beats the eye of 600 measured bits
    // by more than the distribution's spread allows, and lower BER means a
    // smaller eye.
    const auto& ct = s["stat_eye"]["contours"];
    ASSERT_EQ(ct.size(), 3u);
    EXPECT_GE(ct[0]["height_v"].get<double>(), ct[1]["height_v"].get<double>());
    EXPECT_GE(ct[1]["height_v"].get<double>(), ct[2]["height_v"].get<double>());
    EXPECT_LE(ct[2]["height_v"].get<double>(), s["runs"][0]["eye"]["height_v"].get<double>() + 1e-3);
    EXPECT_EQ(s["stat_eye"]["bathtub_ber"].size(), 32u);

    r = Amihost({"--samples-per-bit", "32", "--bits", "600", "--set", "SampleRate=1e12", "-o", "mismatched"});
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.out.find("WARNING: SampleRate is 1e12 but the waveform has 320000000000 samples per second"),
              std::string::npos);
    EXPECT_EQ(Summary("mismatched")["rate_match"]["settings"][0]["agrees"], false);

    // The datasheet: sixteen rows, DC gain within a dB of -6, peaking
    // growing with the setting from under 2 dB to over 15 dB.
    r = Amihost({"--datasheet", "-o", "sheet"});
    ASSERT_EQ(r.code, 0) << r.err;
    const nlohmann::json sheet = Summary("sheet");
    const nlohmann::json& rows = sheet["datasheet"];
    ASSERT_EQ(rows.size(), 16u);
    for (size_t i = 0; i < rows.size(); ++i) {
        EXPECT_NEAR(rows[i]["dc_gain_db"].get<double>(), -6.0, 1.0) << i;
        if (i > 0) {
            EXPECT_GT(rows[i]["peaking_db"].get<double>(), rows[i - 1]["peaking_db"].get<double>()) << i;
        }
    }
    EXPECT_LT(rows[0]["peaking_db"].get<double>(), 2.0);
    EXPECT_GT(rows[15]["peaking_db"].get<double>(), 15.0);
    std::ifstream png(kDir + "/sheet/datasheet.png");
    EXPECT_TRUE(png.good());

    // The library and .ami from an IBIS file; its termination reaches the
    // summary.
    std::ofstream(kDir + "/rx.ibs") << "[IBIS Ver] 7.0\n[Component] RX\n[Pin] signal_name model_name\n1 P M\n"
                                       "[Model] M\nModel_type Input\n[Rgnd] 60\n[Algorithmic Model]\n"
                                       "Executable Linux_gcc12_64 " KV2_RX_SO_PATH " " KIT_AMI_PATH "\n"
                                       "[End Algorithmic Model]\n[End]\n";
    const std::string ibs = "cd '" + kDir + "' && '" AMIHOST_PATH "' --ibs rx.ibs --bits 600 --no-progress -o ibs > /dev/null";
    ASSERT_EQ(std::system(ibs.c_str()), 0);
    EXPECT_EQ(Summary("ibs")["ibis"]["termination_ohms"], 60.0);
    EXPECT_EQ(Summary("ibs")["library"], KV2_RX_SO_PATH);
}

TEST(HostAnalysis, BadInputEndsInItsOwnCodeAndMessage) {
    const std::string big = "amihost: bad parameter: --bits 2000000 x --samples-per-bit 100",
                      limit = " is more than the 134217728 samples amihost keeps in memory",
                      kHeader = "(KV2_RX (Reserved_Parameters (AMI_Version (Usage Info) (Type String) (Value \"7.0\")))";
    std::string deep = kHeader + "(Model_Specific ";
    for (int i = 0; i < 20000; ++i) deep += "(g ";
    deep += "(EQ (Usage In) (Type Integer) (Default 1))" + std::string(20002, ')');
    // A sample rate of 1e300 makes every filter tap NaN while AMI_Init succeeds.
    const std::string nan = kHeader + "(Model_Specific (SampleRate (Usage In) (Type Float) (Range 1e300 1 1e301))"
                            " (SamplesPerBit (Usage In) (Type Integer) (Value 32))))";
    // file: an .ami given with --ami, or a waveform (w*) given with --input.
    const struct { std::string file, text; std::vector<std::string> args; int code; std::string err; } cases[] = {
        {"", "", {"--bits", "-1"}, 2, "--bits: must be a whole number from 1 to 1000000000, not -1"},
        {"", "", {"--bits", "1e6"}, 2, "--bits: must be a whole number from 1 to 1000000000, not 1e6"},
        {"", "", {"--samples-per-bit", "100001"}, 2, "--samples-per-bit: must be a whole number from 1 to 100000, not 100001"},
        {"", "", {"--block", "-1"}, 2, "--block: must be a whole number from 1 to 134217728, not -1"},
        {"", "", {"--ignore-bits", "-5"}, 2, "--ignore-bits: must be a whole number from 0 to 1000000000, not -5"},
        {"", "", {"--channel", "a", "--channel", "b", "--ports", "12-34", "--ports", "13-24", "--ports", "12-34"}, 2,
         "amihost: bad command line: --ports is given 3 times for 2 channels: give it once, or once per --channel"},
        {"", "", {"--shard", "3/2"}, 2, "--shard: must be K/N with 1 <= K <= N <= 100000, not 3/2"},
        {"", "", {"--bits", "2000000"}, 6, big + limit},
        {"", "", {"--bits", "2000000", "--sweep-eq"}, 6, big + " for each of 16 settings" + limit},
        {"n.ami", nan, {"--bits", "300", "--samples-per-bit", "32", "--set", "SampleRate=1e300", "-o", "n"}, 10,
         "amihost: non-finite output (the report above and n/summary.json say what the model returned)"},
        {"d.ami", deep, {}, 5, "amihost: bad file: d.ami is not a valid .ami file: groups are nested deeper than 64 levels"},
        // The parser ends the process on a whitespace run longer than a line; quotes keep one.
        {"q.ami", kHeader + "(Model_Specific (Corner (Usage In) (Type String) (Value \"a" + std::string(127, '\f') + "b\"))))",
         {}, 5, "amihost: bad file: q.ami is not a valid .ami file: a quoted text holds 127 blanks in a row, more than "
         "the 120 the parser reads"},
        {"", "", {"--set", "Corner=\"Typ" + std::string(200, ' ') + "x\""}, 6,
         "amihost: bad parameter: parameter Corner cannot hold 200 blanks in a row: the model's parser reads at most 120"},
        {"w1", "nan\n0.1\n", {}, 5, "amihost: bad file: w1:1: not a finite number in \"nan\""},
        {"w2", "t,v\n0,0.1\n1e-12,0.2\n2.5e-12,0.3\n3e-12,0.1\n", {}, 5,
         "amihost: bad file: waveform file w2: sample 3 at 2.5e-12 s breaks the even time step of 1e-12 s"},
        {"w4", "-1e308,0.1\n1e308,0.2\n", {}, 5, "amihost: bad file: waveform file w4: the times span more than a number can hold"},
        {"w3", "0.1\n\x01\x1b[31m\xff 01234567890123456789012345678901234567890123456789012345\n", {}, 5,
         "amihost: bad file: w3:2: not a number in \"\\x01\\x1B[31m\\xFF 0123456789012345678901234567890123456789012345678901...\""},
    };
    ASSERT_EQ(std::system(("mkdir -p '" + kDir + "'").c_str()), 0);
    for (const auto& c : cases) {
        std::vector<std::string> args = c.args;
        if (!c.file.empty()) std::ofstream(kDir + "/" + c.file, std::ios::binary) << c.text;
        if (c.file[0] == 'w') args.insert(args.begin(), {"--input", c.file});
        const Result r = Amihost(args, c.file.find(".ami") != std::string::npos ? c.file : KIT_AMI_PATH);
        EXPECT_EQ(r.code, c.code) << c.file << " " << (args.empty() ? "" : args[0]);
        EXPECT_EQ(r.err.substr(0, r.err.find('\n')), c.err);
        EXPECT_TRUE(c.code != 10 || r.out.find("\nmodel output: sample 1 is -nan, not finite\n") != std::string::npos);
    }
}
