// Touchstone: version 1.x and 2.x network data, S-parameters only.
#include "tools/signal/Touchstone.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "tools/base/HostError.h"
#include "tools/base/InputFile.h"
#include "tools/base/Text.h"

namespace amihost {

namespace {

const double kPi = 3.14159265358979323846;

std::vector<std::string> Words(const std::string& s) {
    std::istringstream in(s);
    std::vector<std::string> w;
    for (std::string t; in >> t;) w.push_back(t);
    return w;
}

bool Number(const std::string& s, double& out) {
    char* end = nullptr;
    errno = 0;
    out = std::strtod(s.c_str(), &end);
    return !s.empty() && *end == '\0' && errno == 0 && std::isfinite(out);
}

struct Token {
    double value;
    size_t line;
};

constexpr long kMaxPorts = 999;               // what a .sNp name can say
constexpr long kMaxFrequencies = 100000000;
constexpr double kMaxFrequencyHz = 1e15;       // beyond: a wrong unit, not a channel
constexpr double kMaxMagnitude = 1e3;          // 60 dB: no interconnect gains that much

// A version 1 2-port may end with noise parameters: five numbers a line,
// frequencies starting again and increasing. True when everything from
// token `at` on is such a block.
bool NoiseBlockFrom(const std::vector<Token>& tokens, size_t at) {
    double previous = -1.0;
    for (size_t i = at; i < tokens.size(); i += 5) {
        if (i + 5 > tokens.size() || tokens[i + 4].line != tokens[i].line) return false;
        if (i + 5 < tokens.size() && tokens[i + 5].line == tokens[i].line) return false;
        if (tokens[i].value <= previous) return false;
        previous = tokens[i].value;
    }
    return true;
}

}  // namespace

int Touchstone::PortsFromName(const std::string& path) {
    const std::string name = Lower(path.substr(path.find_last_of('/') + 1));
    const size_t dot = name.find_last_of('.');
    if (dot == std::string::npos || name.size() < dot + 4 || name[dot + 1] != 's' || name.back() != 'p') return 0;
    const std::string digits = name.substr(dot + 2, name.size() - dot - 3);
    if (digits.empty() || !std::all_of(digits.begin(), digits.end(), ::isdigit) || digits.size() > 3) return 0;
    return std::atoi(digits.c_str());
}

TouchstoneData Touchstone::Load(const std::string& path) {
    std::string text, problem;
    if (!ReadInputFile(path, text, problem)) throw HostError(ExitCode::kBadFile, "Touchstone file " + path + " " + problem);
    return Parse(text, path, PortsFromName(path));
}

TouchstoneData Touchstone::Parse(const std::string& text, const std::string& origin, int ports) {
    TouchstoneData d;
    size_t lineNo = 0;
    auto bad = [&](size_t line, const std::string& why) {
        return HostError(ExitCode::kBadFile, origin + ":" + std::to_string(line) + ": " + why);
    };
    double unit = 1e9;
    std::string format = "ma";
    bool optionSeen = false, version2 = false, inData = false, ended = false;
    std::string order, matrix = "full";  // order: "" until [Two-Port Data Order]
    long expectFrequencies = -1;
    size_t referenceWanted = 0;   // [Reference] values still to read
    bool referenceFirst = false;  // the next [Reference] value is port 1's
    std::vector<Token> tokens;

    std::istringstream in(text);
    for (std::string raw; !ended && std::getline(in, raw);) {
        ++lineNo;
        std::string line = raw.substr(0, raw.find('!'));
        const std::vector<std::string> words = Words(line);
        if (words.empty()) continue;
        if (words[0][0] == '[') {
            const size_t close = line.find(']');
            if (close == std::string::npos) throw bad(lineNo, "keyword without ']'");
            const std::string key = Lower(line.substr(line.find('[') + 1, close - line.find('[') - 1));
            const std::vector<std::string> args = Words(line.substr(close + 1));
            const std::string arg = args.empty() ? "" : Lower(args[0]);
            auto integer = [&](long& out, long most) {
                double v;
                if (!Number(arg, v) || v < 1 || v != std::floor(v) || v > static_cast<double>(most))
                    throw bad(lineNo, "[" + key + "] needs a positive integer up to " + std::to_string(most));
                out = static_cast<long>(v);
            };
            if (key == "version") {
                if (arg.rfind("2.", 0) != 0) throw bad(lineNo, "unsupported [Version] " + arg + " (1.x and 2.x are read)");
                version2 = true;
                d.sVersion = arg;
            } else if (key == "number of ports") {
                long n;
                integer(n, kMaxPorts);
                ports = static_cast<int>(n);
            } else if (key == "two-port data order") {
                if (arg != "12_21" && arg != "21_12") throw bad(lineNo, "[Two-Port Data Order] is 12_21 or 21_12");
                order = arg;
            } else if (key == "number of frequencies") {
                integer(expectFrequencies, kMaxFrequencies);
            } else if (key == "matrix format") {
                if (arg != "full" && arg != "lower" && arg != "upper")
                    throw bad(lineNo, "[Matrix Format] is Full, Lower or Upper");
                matrix = arg;
            } else if (key == "reference") {
                // The values may follow on the next lines, one per port.
                if (args.empty() && ports < 1) throw bad(lineNo, "[Reference] before [Number of Ports]");
                referenceWanted = static_cast<size_t>(std::max<long>(ports, static_cast<long>(args.size())));
                referenceFirst = true;
                for (const std::string& a : args) {
                    double r;
                    if (!Number(a, r) || r <= 0) throw bad(lineNo, "[Reference] needs positive resistances");
                    if (referenceFirst) d.dReferenceOhms = r;
                    referenceFirst = false;
                    --referenceWanted;
                }
            } else if (key == "network data") {
                if (!optionSeen) throw bad(lineNo, "[Network Data] before the option line");
                inData = true;
            } else if (key == "noise data" || key == "end") {
                ended = true;
            } else if (key == "mixed-mode order") {
                throw bad(lineNo, "mixed-mode data is not supported: give the single-ended S-parameters");
            }
            // Other keywords ([Begin Information], [Number of Noise Frequencies], ...) carry nothing we use.
            continue;
        }
        if (words[0][0] == '#') {
            if (optionSeen) continue;  // only the first option line counts
            optionSeen = true;
            std::vector<std::string> opts = Words(line.substr(line.find('#') + 1));
            for (size_t i = 0; i < opts.size(); ++i) {
                const std::string o = Lower(opts[i]);
                if (o == "hz") unit = 1.0;
                else if (o == "khz") unit = 1e3;
                else if (o == "mhz") unit = 1e6;
                else if (o == "ghz") unit = 1e9;
                else if (o == "s") {}
                else if (o == "y" || o == "z" || o == "h" || o == "g")
                    throw bad(lineNo, "only S-parameters are supported, not " + opts[i]);
                else if (o == "ri" || o == "ma" || o == "db") format = o;
                else if (o == "r") {
                    double r;
                    if (i + 1 >= opts.size() || !Number(opts[i + 1], r) || r <= 0)
                        throw bad(lineNo, "R needs a positive reference resistance");
                    d.dReferenceOhms = r;
                    ++i;
                } else {
                    throw bad(lineNo, "unknown option \"" + opts[i] + "\"");
                }
            }
            continue;
        }
        if (referenceWanted > 0) {  // [Reference] values continued on the next line
            for (const std::string& w : words) {
                double r;
                if (!Number(w, r) || r <= 0) throw bad(lineNo, "[Reference] needs positive resistances");
                if (referenceFirst) d.dReferenceOhms = r;
                referenceFirst = false;
                if (referenceWanted > 0) --referenceWanted;
            }
            continue;
        }
        if (!optionSeen) throw bad(lineNo, "data before the option line (\"# GHz S MA R 50\")");
        if (version2 && !inData) throw bad(lineNo, "data before [Network Data]");
        for (const std::string& w : words) {
            double v;
            if (!Number(w, v)) throw bad(lineNo, "not a number: \"" + w + "\"");
            tokens.push_back({v, lineNo});
        }
    }
    if (version2 && !ended) throw bad(lineNo, "no [End]");
    if (ports < 1)
        throw bad(lineNo, "cannot tell the number of ports: name the file .sNp or give [Number of Ports]");
    if (version2 && ports == 2 && order.empty()) throw bad(lineNo, "a 2-port needs [Two-Port Data Order]");
    if (order.empty()) order = "21_12";
    d.nPorts = ports;
    const size_t n = static_cast<size_t>(ports);
    const size_t pairs = matrix == "full" ? n * n : n * (n + 1) / 2;
    const size_t perPoint = 1 + 2 * pairs;

    for (size_t at = 0; at < tokens.size(); at += perPoint) {
        const double f = tokens[at].value * unit;
        if (!d.vFrequencyHz.empty() && f <= d.vFrequencyHz.back()) {
            if (!version2 && ports == 2 && NoiseBlockFrom(tokens, at)) break;
            throw bad(tokens[at].line, "frequencies must increase");
        }
        if (f < 0) throw bad(tokens[at].line, "negative frequency");
        if (!(f <= kMaxFrequencyHz)) throw bad(tokens[at].line, "frequency above 1e15 Hz: is the option line's unit right?");
        if (at + perPoint > tokens.size())
            throw bad(tokens.back().line, "incomplete data: the last frequency point has " +
                                              std::to_string(tokens.size() - at) + " of " + std::to_string(perPoint) +
                                              " numbers");
        // Every point starts a line and ends one; one that ends inside a line
        // has a number missing or one too many.
        const size_t last = at + perPoint - 1;
        if (last + 1 < tokens.size() && tokens[last + 1].line == tokens[last].line)
            throw bad(tokens[at].line, "the frequency point starting here does not end with a line after its " +
                                           std::to_string(perPoint) + " numbers: a number is missing or extra");
        std::vector<std::complex<double>> S(n * n);
        size_t k = at + 1;
        for (size_t i = 0; i < n; ++i)
            for (size_t j = 0; j < n; ++j) {
                if ((matrix == "lower" && j > i) || (matrix == "upper" && j < i)) continue;
                const double a = tokens[k].value, b = tokens[k + 1].value;
                k += 2;
                std::complex<double> v;
                if (format == "ri") v = {a, b};
                else if (format == "ma") v = std::polar(a, b * kPi / 180.0);
                else v = std::polar(std::pow(10.0, a / 20.0), b * kPi / 180.0);
                if (!(std::abs(v) <= kMaxMagnitude))
                    throw bad(tokens[k - 2].line, "S-parameter magnitude above 1000 (60 dB)");
                // A 2-port in 21_12 order lists S11 S21 S12 S22: column by column.
                const bool columnwise = n == 2 && order == "21_12";
                S[columnwise ? j * n + i : i * n + j] = v;
                if (matrix != "full") S[j * n + i] = v;
            }
        d.vFrequencyHz.push_back(f);
        d.vS.push_back(std::move(S));
    }
    if (d.vFrequencyHz.empty()) throw bad(lineNo, "no network data");
    if (expectFrequencies >= 0 && static_cast<size_t>(expectFrequencies) != d.vFrequencyHz.size())
        throw bad(lineNo, "[Number of Frequencies] is " + std::to_string(expectFrequencies) + " but the data has " +
                              std::to_string(d.vFrequencyHz.size()));
    return d;
}

}  // namespace amihost
