// amihost as a user runs it: exit codes and messages for each kind of
// failure, AMI_Close after every failure, the files of a run, and a sweep
// whose result for a setting equals the single run of that setting.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/wait.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "AmihostTest.h"

namespace {

using namespace amihost_test;

class Host : public AmihostTest {};

}  // namespace

TEST_F(Host, EveryOutcomeHasItsExitCodeAndMessage) {
    const std::string stub = s_dir + "/stub.ami";
    auto failed = [](const char* call) {
        return std::string("amihost: ") + call + " failed (the report above and amihost-out/summary.json say what "
               "the model returned)\n";
    };
    auto Stub = [&](const char* mode) {
        return std::vector<std::string>{"--lib", STUB_MODEL_PATH, "--ami", stub, "--set", mode, "--bits", "200",
                                        "--no-progress"};
    };
    // out: a part of standard output; calls: the stub's log.
    const struct { std::vector<std::string> args; int code; std::string err, out = ""; const char* calls = nullptr; } cases[] = {
        {{"--lib", "/nonexistent/m.so", "--ami", KIT_AMI_PATH}, 3,
         "amihost: missing library: model library not found: /nonexistent/m.so\n"},
        {{"--lib", STUB_PARTIAL_PATH, "--ami", stub}, 4,
         std::string("amihost: missing symbols: model library ") + STUB_PARTIAL_PATH + " does not export: AMI_GetWave\n"},
        {{"--lib", KV2_RX_SO_PATH, "--ami", "broken.ami"}, 5,
         "amihost: bad file: broken.ami is not a valid .ami file: unbalanced parentheses\n"},
        {Kit({"--input", "wave.txt"}), 5, "amihost: bad file: wave.txt:3: not a number in \"abc\"\n"},
        {Kit({"--set", "EQ=16"}), 6, "amihost: bad parameter: parameter EQ cannot be 16: its range is 0 to 15\n"},
        {Kit({"--amplitude", "0"}), 6, "amihost: bad parameter: --amplitude must be from 1e-9 to 1e6 V\n"},
        // AMI_Close follows every failure of the model.
        {Stub("Mode=1"), 7, failed("AMI_Init"), "AMI_Init returned 0, message: \"stub init failed\"\nAMI_Close returned 1\n",
         "init\nclose\n"},
        {Stub("Mode=2"), 8, failed("AMI_GetWave"), "", "init\ngetwave\nclose\n"},
        // The model runs in a worker process: a crash, an exit or a hang is named by the call it was in.
        {Stub("Mode=3"), 11, "amihost: model crashed: the model crashed in AMI_GetWave of Stub (signal 6, Aborted)\n", "",
         "init\ngetwave\n"},
        {Stub("Mode=4"), 11, "amihost: model crashed: the process was ended in AMI_Init of Stub (exit status 3)\n", "",
         "init\n"},
        {[&] { auto a = Stub("Mode=5"); a.insert(a.end(), {"--call-timeout", "1"}); return a; }(), 12,
         "amihost: model hung: the model did not return from AMI_GetWave of Stub within 1 s (--call-timeout)\n", "",
         "init\ngetwave\n"},
        {Kit({"--set", "EQ=9", "-o", "single"}), 0, "",
         "parameters : (KV2_RX (SampleRate 1e12) (EQ 9) (SamplesPerBit 32) (Corner \"Typ\"))\n"
         "AMI_Init returned 1, message: (none)\n"},
    };
    for (const auto& c : cases) {
        std::remove((s_dir + "/stub.log").c_str());
        const Result r = Run(c.args);
        EXPECT_EQ(r.code, c.code) << r.err;
        EXPECT_EQ(r.err, c.err);
        EXPECT_NE(r.out.find(c.out), std::string::npos) << r.out;
        EXPECT_EQ(Slurp(s_dir + "/stub.log"), c.calls ? c.calls : "");
    }
    EXPECT_EQ(Slurp(s_dir + "/single/eye.png").substr(0, 8), "\x89PNG\r\n\x1a\n");
    EXPECT_EQ(Slurp(s_dir + "/single/waveform.csv").rfind("time_s,input_V,output_V\n0,", 0), 0u);
    // A sweep on three threads gives each setting the eye of its single run.
    const Result sweep = Run(Kit({"--sweep-eq", "--jobs", "3", "-o", "sweep"}));
    ASSERT_EQ(sweep.code, 0) << sweep.err;
    EXPECT_NE(sweep.out.find("<- best"), std::string::npos);
    const std::vector<std::string> eyes = Eyes(Slurp(s_dir + "/sweep/summary.json"));
    ASSERT_EQ(eyes.size(), 16u);
    EXPECT_EQ(Eyes(Slurp(s_dir + "/single/summary.json")), std::vector<std::string>{eyes[9]});
    // The command line itself: CLI11's own wording, our exit code.
    const Result usage = Run({"--lib", KV2_RX_SO_PATH});
    EXPECT_EQ(usage.code, 2);
    EXPECT_NE(usage.err.find("--ami is required"), std::string::npos) << usage.err;
    EXPECT_EQ(Run({"--lib", KV2_RX_SO_PATH, "--ami", KIT_AMI_PATH, "--prbs", "9"}).code, 2);
}

// A channel 200 UI long gives the eyes, the best setting and the statistical
// eye of the same channel without the delay.
TEST_F(Host, ALongChannelDelayChangesNoEye) {
    Spit(s_dir + "/near.s2p", LossyLine(0.0));
    Spit(s_dir + "/far.s2p", LossyLine(200 * 32e-12));
    const Result near = Run(Kit({"--channel", "near.s2p", "--sweep-eq", "--stat-eye", "-o", "near"}));
    const Result far = Run(Kit({"--channel", "far.s2p", "--sweep-eq", "--stat-eye", "-o", "far"}));
    ASSERT_EQ(near.code, 0) << near.err;
    ASSERT_EQ(far.code, 0) << far.err;
    EXPECT_NE(far.out.find("(200.0 UI)"), std::string::npos) << far.out;  // the delay found, reported
    const std::vector<double> a = Heights(Slurp(s_dir + "/near/summary.json")), b = Heights(Slurp(s_dir + "/far/summary.json"));
    ASSERT_EQ(a.size(), 16u);
    ASSERT_EQ(b.size(), 16u);
    for (size_t k = 0; k < a.size(); ++k) EXPECT_NEAR(a[k], b[k], 2e-3) << "EQ " << k;
    auto line = [](const std::string& out, const std::string& head) { return out.substr(out.find(head), out.find('\n', out.find(head)) - out.find(head)); };
    EXPECT_EQ(line(near.out, "best       :").substr(0, 19), line(far.out, "best       :").substr(0, 19));
    const std::string cursorA = line(near.out, "main cursor"), cursorB = line(far.out, "main cursor");
    EXPECT_NEAR(std::stod(cursorA.substr(12)), std::stod(cursorB.substr(12)), 2e-3) << cursorA << " / " << cursorB;
}

// A campaign runs each channel as it would run alone and picks the setting
// whose worst eye over the channels is the largest.
namespace {

// A 2-port with a flat S21 of `s21` at each of `frequenciesGHz`.
std::string Flat(const std::vector<double>& frequenciesGHz, double s21) {
    std::ostringstream t;
    t << "# GHz S RI R 50\n";
    for (double f : frequenciesGHz) t << f << " 0 0 " << s21 << " 0 " << s21 << " 0 0 0\n";
    return t.str();
}

std::vector<double> Steps(double from, double to, double step) {
    std::vector<double> f;
    for (double x = from; x <= to + 1e-9; x += step) f.push_back(x);
    return f;
}

}  // namespace

// Data that cannot describe the link at 31.25 Gb/s (Nyquist 15.625 GHz) are
// simulated with a warning, printed and in summary.json, never in silence.
TEST_F(Host, ChannelDataThatCannotTellAreWarnedAbout) {
    std::string through = "# GHz S RI R 50\n";  // a 4-port whose through paths are 1-2 and 3-4
    for (double f : Steps(0.1, 20, 0.1)) {
        through += std::to_string(f);
        for (int row = 1; row <= 4; ++row, through += "\n")
            for (int col = 1; col <= 4; ++col) through += (row + col == 3 || row + col == 7) && row != col ? " 0.9 0" : " 0 0";
    }
    const struct { const char* name; std::string text; std::vector<std::string> extra; const char* warning; } cases[] = {
        {"short.s2p", Flat(Steps(0.05, 1, 0.05), 0.9), {},
         "WARNING: the data end at 1 GHz, below the Nyquist frequency 15.625 GHz: the channel is simulated as passing "
         "nothing above 1 GHz"},
        {"late.s2p", Flat(Steps(3, 20, 0.5), 0.9), {},
         "WARNING: the data start at 3 GHz: below it the magnitude is held and the phase extrapolated to DC, which the "
         "data do not show"},
        {"sparse.s2p", Flat({0.01, 10, 20}, 0.9), {},
         "WARNING: only 2 data points up to the Nyquist frequency 15.625 GHz: too few to describe the channel at this bit rate"},
        {"single.s2p", Flat({0.01, 20, 30}, 0.9), {},
         "WARNING: only 1 data point up to the Nyquist frequency 15.625 GHz: too few to describe the channel at this bit rate"},
        {"active.s2p", Flat(Steps(0.01, 20, 0.1), 3.57), {},
         "WARNING: |S21| reaches 3.57 at 0.01 GHz: the data describe an active network, not a passive channel"},
        {"pairs.s4p", through, {"--ports", "12-34"},
         "WARNING: pairing 13-24 passes 0.9 at 0.1 GHz where the chosen 12-34 passes 0: is --ports 13-24 the through path?"},
    };
    for (const auto& c : cases) {
        Spit(s_dir + "/" + c.name, c.text);
        std::vector<std::string> args = Kit({"--channel", c.name, "-o", "warned"});
        args.insert(args.end(), c.extra.begin(), c.extra.end());
        const Result r = Run(args);
        ASSERT_EQ(r.code, 0) << c.name << ": " << r.err;
        EXPECT_NE(r.out.find(std::string("\n") + c.warning + "\n"), std::string::npos) << c.name << ":\n" << r.out;
        EXPECT_NE(Slurp(s_dir + "/warned/summary.json").find(c.warning), std::string::npos) << c.name;
    }
    EXPECT_NE(Run(Kit({"--channel", "short.s2p", "-o", "warned"})).out.find(
                  "no data at Nyquist (simulated as passing nothing at 15.625 GHz)"), std::string::npos);
}
