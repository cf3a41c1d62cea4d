// Running amihost as a user does, for the tests of the host and of
// campaigns: a test folder with a stub .ami, the real model's short run,
// and channels written by the tests themselves.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace amihost_test {

struct Result { int code; std::string out, err; };

inline std::string Slurp(const std::string& path) {
    std::ostringstream s;
    s << std::ifstream(path, std::ios::binary).rdbuf();
    return s.str();
}

inline void Spit(const std::string& path, const std::string& text) { std::ofstream(path, std::ios::binary) << text; }

class AmihostTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        char tmpl[] = "/tmp/amihost_test_XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        s_dir = tmpl;
        Spit(s_dir + "/stub.ami",
             "(Stub (Reserved_Parameters (AMI_Version (Usage Info) (Type String) (Value \"7.0\")))\n"
             " (Model_Specific (Mode (Usage In) (Type Integer) (Range 0 0 5) (Default 0))))\n");
        Spit(s_dir + "/broken.ami", "(KV2_RX (Reserved_Parameters (AMI_Version (Usage Info))\n");
        Spit(s_dir + "/wave.txt", "0.1\n0.2\nabc\n");
    }
    static void TearDownTestSuite() { std::system(("rm -rf '" + s_dir + "'").c_str()); }

    // Runs amihost with the arguments (each single-quoted), from the test
    // folder, with the stub's call log at stub.log.
    static Result Run(const std::vector<std::string>& args) {
        std::string cmd = "cd '" + s_dir + "' && AMIHOST_STUB_LOG=stub.log '" AMIHOST_PATH "'";
        for (const std::string& a : args) cmd += " '" + a + "'";
        const int status = std::system((cmd + " > out.txt 2> err.txt").c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, Slurp(s_dir + "/out.txt"), Slurp(s_dir + "/err.txt")};
    }

    // A short run of the real model: PRBS7, 300 bits of 32 samples.
    static std::vector<std::string> Kit(std::vector<std::string> extra) {
        extra.insert(extra.begin(), {"--lib", KV2_RX_SO_PATH, "--ami", KIT_AMI_PATH, "--bits", "300", "--bit-rate", "31.25e9",
                                     "--samples-per-bit", "32", "--set", "SamplesPerBit=32", "--ignore-bits", "20",
                                     "--no-progress"});
        return extra;
    }

    static inline std::string s_dir;
};

// The "eye" objects of a summary, in run order.
inline std::vector<std::string> Eyes(const std::string& json) {
    std::vector<std::string> eyes;
    for (size_t at = json.find("\"eye\": {"); at != std::string::npos; at = json.find("\"eye\": {", at + 1))
        eyes.push_back(json.substr(at, json.find('}', at) - at));
    return eyes;
}

// A lossy line, |S21| = 1/sqrt(1 + (f/corner)^2) with its phase, delayed by
// `delay` seconds more: S21 e^(-j 2 pi f delay), as a version 1 2-port.
inline std::string LossyLine(double delay, double cornerHz = 5e9) {
    std::ostringstream t;
    t.precision(12);
    t << "# GHz S RI R 50\n";
    const double pi = 3.14159265358979323846;
    for (int k = 0; k <= 4000; ++k) {
        const double f = 0.025e9 * k, x = f / cornerHz, phase = -2 * pi * f * delay;
        const double re = 1 / (1 + x * x), im = -x / (1 + x * x);  // 1 / (1 + j x)
        const double r21 = re * std::cos(phase) - im * std::sin(phase), i21 = re * std::sin(phase) + im * std::cos(phase);
        t << f / 1e9 << " 0 0 " << r21 << " " << i21 << " " << r21 << " " << i21 << " 0 0\n";
    }
    return t.str();
}

inline std::vector<double> Heights(const std::string& json) {
    std::vector<double> h;
    for (const std::string& eye : Eyes(json)) h.push_back(std::stod(eye.substr(eye.find("\"height_v\": ") + 12)));
    return h;
}

}  // namespace amihost_test
