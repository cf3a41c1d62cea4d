// Touchstone files and the channel made from them: closed-form channels
// written as Touchstone files by the test (an RC section, an ideal delay, a
// matched pair of lines) against their analytic step responses; the same
// data in every format and unit; and each malformed file's message.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstdio>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "tools/signal/ChannelResponse.h"
#include "tools/base/HostError.h"
#include "tools/signal/Touchstone.h"
#include "tools/signal/TouchstoneChannel.h"

namespace {

using C = std::complex<double>;
using amihost::TouchstoneChannel;
using amihost::TouchstoneData;
const double kPi = 3.14159265358979323846;
const double kT = 1e-12;  // sample interval

// A 1.x file: option line, then per frequency (step 10 MHz up to fmax) the
// matrix from s(f) as MA pairs, row by row (2-port: S11 S21 S12 S22).
std::string Write(const std::string& name, int ports, double fmax, const std::function<C(double, int, int)>& s) {
    const std::string path = ::testing::TempDir() + name;
    std::ofstream out(path);
    out << "! written by the test\n# GHz S MA R 50\n";
    out.precision(17);
    for (double f = 0.01e9; f <= fmax * 1.000001; f += 0.01e9) {
        out << f / 1e9;
        for (int i = 1; i <= ports; ++i)
            for (int j = 1; j <= ports; ++j) {
                const C v = ports == 2 ? s(f, j, i) : s(f, i, j);
                out << ' ' << std::abs(v) << ' ' << std::arg(v) * 180.0 / kPi;
            }
        out << '\n';
    }
    return path;
}

std::vector<double> Step(const TouchstoneChannel& ch, size_t n) {
    std::vector<double> x(n, 1.0);
    x[0] = 0.0;
    ch.Process(x);
    return x;
}

}  // namespace

TEST(Touchstone, ClosedFormChannelsGiveTheirAnalyticStepResponses) {
    // RC section, corner 5 GHz: step 1 - exp(-t / tau).
    const double fc = 5e9, tau = 1.0 / (2 * kPi * fc);
    const std::string rc = Write("rc.s2p", 2, 100e9, [&](double f, int i, int j) {
        return i == j ? C(0) : 1.0 / C(1.0, f / fc);
    });
    const TouchstoneChannel rcCh(rc, "13-24", kT);
    const std::vector<double> y = Step(rcCh, 4000);
    for (size_t n = 10; n < 4000; n += 37)
        EXPECT_NEAR(y[n], 1.0 - std::exp(-(n - 0.5) * kT / tau), 0.01) << "RC, sample " << n;
    EXPECT_NEAR(rcCh.LossDb(fc), 10 * std::log10(2.0), 1e-3);
    // The same section behind 6.4 ns of line (200 UI at 31.25 Gb/s): the
    // same step, 6400 samples later, and nothing before it.
    const double late = 6.4e-9;
    const std::string far = Write("rc_far.s2p", 2, 100e9, [&](double f, int i, int j) {
        return i == j ? C(0) : std::polar(1.0, -2 * kPi * f * late) / C(1.0, f / fc);
    });
    const std::vector<double> z = Step(TouchstoneChannel(far, "13-24", kT), 12000);
    for (size_t n = 10; n < 12000; n += 37) {
        const double t = (n - 0.5) * kT - late;
        EXPECT_NEAR(z[n], t > 0 ? 1.0 - std::exp(-t / tau) : 0.0, 0.01) << "delayed RC, sample " << n;
    }

    // Ideal delay of 123 ps (a 2-port, whatever --ports says) and the same
    // delay on two matched lines 1->2 and 3->4 of a 4-port, read as SDD21.
    const double d = 123e-12;
    auto delay = [&](double f) { return std::polar(1.0, -2 * kPi * f * d); };
    const std::string wire = Write("delay.s2p", 2, 100e9, [&](double f, int i, int j) { return i == j ? C(0) : delay(f); });
    const std::string pair = Write("pair.s4p", 4, 100e9, [&](double f, int i, int j) {
        return (i + j == 3 || i + j == 7) ? delay(f) : C(0);  // S12, S21, S34, S43
    });
    for (const auto& c : {std::make_pair(wire, "12-34"), std::make_pair(pair, "13-24")}) {
        const std::vector<double> s = Step(TouchstoneChannel(c.first, c.second, kT), 1000);
        // The input steps between samples 0 and 1, so the edge is centred
        // between samples 123 and 124; 100 GHz of data make it about 5 ps.
        EXPECT_NEAR(s[108], 0.0, 0.03) << c.first;
        EXPECT_NEAR(s[139], 1.0, 0.03) << c.first;
        EXPECT_NEAR(0.5 * (s[123] + s[124]), 0.5, 0.01) << c.first;
        EXPECT_NEAR(s[999], 1.0, 1e-3) << c.first;
    }
    // Pairing 1/2 at the input and 3/4 at the output finds no path through
    // lines 1->2 and 3->4.
    const std::vector<double> none = Step(TouchstoneChannel(pair, "12-34", kT), 1000);
    EXPECT_NEAR(none[999], 0.0, 1e-9);

    // A 100 ohm receiver on a 50 ohm line reflects 1/3: the voltage it sees
    // is H (1 + 1/3) / (1 - S22 / 3); S22 = 0.2 here.
    EXPECT_NEAR(Step(TouchstoneChannel(wire, "12-34", kT, 100.0), 1000)[999], 4.0 / 3.0, 1e-3);
    const TouchstoneData mismatched = amihost::Touchstone::Parse("# GHz S RI\n1 0 0 0.5 0 0.5 0 0.2 0\n", "f", 2);
    EXPECT_NEAR(std::abs(amihost::ChannelResponse::Through(mismatched, {}, 100.0)[0] - C(0.5 * (4.0 / 3) / (1 - 0.2 / 3))), 0.0, 1e-12);
}

TEST(Touchstone, EveryFormatUnitAndVersionReadsTheSameNetwork) {
    const C s11(0.1, -0.2), s21(0.5, 0.3), s12(0.4, 0.25), s22(-0.05, 0.1);
    auto ma = [](C v) { return std::to_string(std::abs(v)) + " " + std::to_string(std::arg(v) * 180 / kPi); };
    auto db = [](C v) { return std::to_string(20 * std::log10(std::abs(v))) + " " + std::to_string(std::arg(v) * 180 / kPi); };
    auto ri = [](C v) { return std::to_string(v.real()) + " " + std::to_string(v.imag()); };
    const std::string texts[] = {
        "# MHz S RI R 50\n1000 " + ri(s11) + " " + ri(s21) + " " + ri(s12) + " " + ri(s22) + "\n",
        "!c\n# hz s ma\n1e9 " + ma(s11) + " ! S11\n " + ma(s21) + "\n" + ma(s12) + " " + ma(s22) + "\n",
        "# KHz S DB R 75\n1e6 " + db(s11) + " " + db(s21) + " " + db(s12) + " " + db(s22) + "\n",
        "[Version] 2.0\n# GHz S RI R 50\n[Number of Ports] 2\n[Two-Port Data Order] 12_21\n[Number of Frequencies] 1\n"
        "[Reference] 50 50\n[Network Data]\n1 " + ri(s11) + " " + ri(s12) + " " + ri(s21) + " " + ri(s22) + "\n[End]\n",
    };
    for (const std::string& t : texts) {
        const TouchstoneData d = amihost::Touchstone::Parse(t, "t.s2p", 2);
        ASSERT_EQ(d.vFrequencyHz.size(), 1u) << t;
        EXPECT_NEAR(d.vFrequencyHz[0], 1e9, 1e-3) << t;
        for (const auto& e : {std::make_tuple(1, 1, s11), std::make_tuple(2, 1, s21), std::make_tuple(1, 2, s12),
                              std::make_tuple(2, 2, s22)})
            EXPECT_NEAR(std::abs(d.S(0, std::get<0>(e), std::get<1>(e)) - std::get<2>(e)), 0.0, 1e-5) << t;
    }
    EXPECT_EQ(amihost::Touchstone::Parse(texts[2], "t.s2p", 2).dReferenceOhms, 75.0);
    // A symmetric 3-port given as its lower triangle.
    const TouchstoneData lower = amihost::Touchstone::Parse(
        "[Version] 2.1\n# GHz S RI\n[Number of Ports] 3\n[Matrix Format] Lower\n[Network Data]\n"
        "1 1 0\n 2 0 3 0\n 4 0 5 0 6 0\n[End]\n", "x", 0);
    EXPECT_EQ(lower.S(0, 1, 3), C(4, 0));
    EXPECT_EQ(lower.S(0, 3, 1), C(4, 0));
    EXPECT_EQ(lower.S(0, 2, 3), C(5, 0));
    EXPECT_EQ(amihost::Touchstone::PortsFromName("dir.s2p/ch.S12P"), 12);
    EXPECT_EQ(amihost::Touchstone::PortsFromName("ch.txt"), 0);
}

// One frequency point of a 4-port, in four lines.
std::string FourPort(int f) {
    std::string t = std::to_string(f);
    for (int row = 0; row < 4; ++row, t += "\n")
        for (int col = 0; col < 4; ++col) t += row == col ? " 0.1 0" : " 0.2 0";
    return t;
}

TEST(Touchstone, FieldLayoutsAreRead) {
    // [Reference] alone on its line, the values on the lines after it.
    const TouchstoneData v2 = amihost::Touchstone::Parse(
        "[Version] 2.0\n# GHz S RI R 50\n[Number of Ports] 4\n[Reference]\n75 75\n75 75\n[Network Data]\n" +
            FourPort(1) + FourPort(2) + "[End]\n", "x.s4p", 0);
    EXPECT_EQ(v2.dReferenceOhms, 75.0);
    EXPECT_EQ(v2.vFrequencyHz.size(), 2u);
    // A version 1 2-port that ends with noise parameters.
    const TouchstoneData noisy = amihost::Touchstone::Parse(
        "# GHz S RI\n1 0 0 1 0 1 0 0 0\n2 0 0 1 0 1 0 0 0\n3 0 0 1 0 1 0 0 0\n1 2 0.5 10 0.3\n2 2.5 0.4 20 0.3\n",
        "n.s2p", 2);
    EXPECT_EQ(noisy.vFrequencyHz, (std::vector<double>{1e9, 2e9, 3e9}));
}

TEST(Touchstone, MalformedFilesAndPairingsAreNamedWithTheirLine) {
    const std::string ok = "1 0 0 1 0 1 0 0 0\n";
    const struct { std::string text; int ports; const char* message; } cases[] = {
        {"# GHz S RI\n1 0 0 x 0 1 0 0 0\n", 2, "f:2: not a number: \"x\""},
        {"# GHz Y RI\n" + ok, 2, "f:1: only S-parameters are supported, not Y"},
        {"# GHz S RI Q\n" + ok, 2, "f:1: unknown option \"Q\""},
        {"# GHz S RI R\n" + ok, 2, "f:1: R needs a positive reference resistance"},
        {ok, 2, "f:1: data before the option line (\"# GHz S MA R 50\")"},
        {"# GHz S RI\n!\n1 0 0 1 0\n 1 0\n", 2, "f:4: incomplete data: the last frequency point has 7 of 9 numbers"},
        {"# GHz S RI\n" + std::string(33, ' ') + "\n", 4, "f:2: no network data"},
        {"# GHz S RI\n" + ok, 0, "f:2: cannot tell the number of ports: name the file .sNp or give [Number of Ports]"},
        {"# GHz S RI\n1 1 0\n1 1 0\n", 1, "f:3: frequencies must increase"},
        {"[Version] 3.0\n", 2, "f:1: unsupported [Version] 3.0 (1.x and 2.x are read)"},
        {"[Version] 2.0\n# GHz S RI\n[Number of Ports] 2\n[Network Data]\n" + ok + "[End]\n", 2,
         "f:6: a 2-port needs [Two-Port Data Order]"},
        {"[Version] 2.0\n# GHz S RI\n[Number of Ports] 1\n[Network Data]\n1 1 0\n", 1, "f:5: no [End]"},
        {"[Version] 2.0\n# GHz S RI\n[Number of Ports] 1\n1 1 0\n", 1, "f:4: data before [Network Data]"},
        {"[Version] 2.0\n# GHz S RI\n[Number of Ports] 1\n[Number of Frequencies] 2\n[Network Data]\n1 1 0\n[End]\n", 1,
         "f:7: [Number of Frequencies] is 2 but the data has 1"},
        {"[Number of Ports] two\n", 1, "f:1: [number of ports] needs a positive integer up to 999"},
        // Numbers at the edges.
        {"[Number of Ports] 4294967298\n", 1, "f:1: [number of ports] needs a positive integer up to 999"},
        {"[Number of Frequencies] 1e20\n", 1, "f:1: [number of frequencies] needs a positive integer up to 100000000"},
        {"# GHz S RI\n1e300 0 0 1 0 1 0 0 0\n", 2, "f:2: frequency above 1e15 Hz: is the option line's unit right?"},
        {"# GHz S MA\n" + ok + "2 0 0 1e300 0 1 0 0 0\n", 2, "f:3: S-parameter magnitude above 1000 (60 dB)"},
        {"[Version] 2.0\n[Reference]\n50 50\n", 0, "f:2: [Reference] before [Number of Ports]"},
        // A number missing or extra, swapped or repeated lines: named where
        // they are, not taken for the start of noise data.
        {"# GHz S RI\n" + ok + "2 0 0 1 0 1 0 0\n3 0 0 1 0 1 0 0 0\n4 0 0 1 0 1 0 0 0\n", 2,
         "f:3: the frequency point starting here does not end with a line after its 9 numbers: a number is missing or extra"},
        {"# GHz S RI\n" + ok + "2 0 0 1 0 1 0 0 0 0\n3 0 0 1 0 1 0 0 0\n", 2,
         "f:3: the frequency point starting here does not end with a line after its 9 numbers: a number is missing or extra"},
        {"# GHz S RI\n" + ok + "3 0 0 1 0 1 0 0 0\n2 0 0 1 0 1 0 0 0\n4 0 0 1 0 1 0 0 0\n", 2, "f:4: frequencies must increase"},
        {"# GHz S RI\n" + ok + "2 0 0 1 0 1 0 0 0\n2 0 0 1 0 1 0 0 0\n3 0 0 1 0 1 0 0 0\n", 2, "f:4: frequencies must increase"},
        {"# GHz S RI\n" + FourPort(1) + FourPort(2).substr(0, FourPort(2).size() - 4) + "\n" + FourPort(3), 4,
         "f:6: the frequency point starting here does not end with a line after its 33 numbers: a number is missing or extra"},
    };
    for (const auto& c : cases) {
        try {
            amihost::Touchstone::Parse(c.text, "f", c.ports);
            ADD_FAILURE() << "accepted: " << c.text;
        } catch (const amihost::HostError& e) {
            EXPECT_EQ(e.Code(), amihost::ExitCode::kBadFile);
            EXPECT_EQ(std::string(e.what()), c.message) << c.text;
        }
    }
    for (const char* p : {"1324", "1-2", "13-2", "11-24", "13-34", "a3-24", "13-24-5"})
        EXPECT_THROW(amihost::ChannelResponse::ParsePorts(p), amihost::HostError) << p;
    const amihost::PortPairing wide = amihost::ChannelResponse::ParsePorts("1,5-2,6");
    EXPECT_EQ(std::vector<int>({wide.iInP, wide.iInN, wide.iOutP, wide.iOutN}), std::vector<int>({1, 5, 2, 6}));
    std::string zeros = "# GHz S RI\n1";
    for (int i = 0; i < 18; ++i) zeros += " 0";
    const TouchstoneData three = amihost::Touchstone::Parse(zeros + "\n", "f", 3);
    EXPECT_THROW(amihost::ChannelResponse::Through(three, {}), amihost::HostError);
    EXPECT_THROW(TouchstoneChannel("/nonexistent.s2p", "13-24", kT), amihost::HostError);
}
