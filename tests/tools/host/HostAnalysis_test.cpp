// amihost's analyses as a user runs them: rate matching reported in the
// summary, the datasheet of the kit, the statistical eye next to the
// bit-by-bit one, a Touchstone channel, and the exit code and message of
// every way they can be misused.
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
    ASSERT_EQ(std::system(("rm -f '" + kDir + "/fifo' && mkfifo '" + kDir + "/fifo'").c_str()), 0);
    const struct { std::vector<std::string> args; int code; std::string err; } cases[] = {
        {{"--channel", "none.s4p"}, 5, "amihost: bad file: Touchstone file none.s4p cannot be read: No such file or directory\n"},
        {{"--ibs", "none.ibs"}, 5, "amihost: bad file: IBIS file none.ibs cannot be read: No such file or directory\n"},
        // Paths that are not regular files are named as what they are, not read.
        {{"--channel", "."}, 5, "amihost: bad file: Touchstone file . is a directory, not a regular file\n"},
        {{"--ibs", "/dev/zero"}, 5, "amihost: bad file: IBIS file /dev/zero is a character device, not a regular file\n"},
        {{"--input", "fifo"}, 5, "amihost: bad file: waveform file fifo is a FIFO (named pipe), not a regular file\n"},
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
