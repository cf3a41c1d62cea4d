// WaveformFile: waveform text input and CSV output.
#include "tools/signal/WaveformFile.h"
#include "tools/base/InputFile.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>

#include "tools/base/HostError.h"

namespace amihost {

namespace {

// Comma- or semicolon-separated cells when the line has either, else
// whitespace-separated ones; cells are trimmed.
std::vector<std::string> Cells(const std::string& line) {
    const bool delimited = line.find_first_of(",;") != std::string::npos;
    std::vector<std::string> cells;
    size_t at = 0;
    while (at <= line.size()) {
        size_t end = delimited ? line.find_first_of(",;", at) : line.find_first_of(" \t\r", at);
        if (end == std::string::npos) end = line.size();
        std::string cell = line.substr(at, end - at);
        const size_t b = cell.find_first_not_of(" \t\r"), e = cell.find_last_not_of(" \t\r");
        cell = b == std::string::npos ? std::string() : cell.substr(b, e - b + 1);
        if (delimited || !cell.empty()) cells.push_back(cell);
        at = end + 1;
    }
    return cells;
}

// Whether the whole cell reads as a number; "nan" and "inf" do, and are
// refused as samples rather than taken for a header's names.
bool Number(const std::string& s, double& out) {
    if (s.empty()) return false;
    char* end = nullptr;
    errno = 0;
    out = std::strtod(s.c_str(), &end);
    return *end == '\0';
}

// A line as it may be echoed to a terminal: bytes that are not printable
// ASCII as \xNN, and no more than kShown bytes of it.
std::string Shown(const std::string& line) {
    const size_t kShown = 60;
    std::string out;
    for (size_t i = 0; i < line.size() && i < kShown; ++i) {
        const unsigned char c = static_cast<unsigned char>(line[i]);
        char hex[5];
        std::snprintf(hex, sizeof hex, "\\x%02X", c);
        out += c >= 0x20 && c < 0x7F ? std::string(1, static_cast<char>(c)) : std::string(hex);
    }
    return line.size() > kShown ? out + "..." : out;
}

std::string Seconds(double t) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.9g", t);
    return std::string(buf) + " s";
}

}  // namespace

Waveform WaveformFile::Read(const std::string& path) {
    std::string text, problem;
    if (!ReadInputFile(path, text, problem)) throw HostError(ExitCode::kBadFile, "waveform file " + path + " " + problem);
    return Parse(text, path);
}

Waveform WaveformFile::Parse(const std::string& text, const std::string& path) {
    std::istringstream in(text);
    Waveform w;
    std::vector<double> times;
    size_t columns = 0;
    std::string line;
    size_t lineNo = 0;
    bool seenData = false;
    auto bad = [&](const std::string& why) {
        return HostError(ExitCode::kBadFile, path + ":" + std::to_string(lineNo) + ": " + why);
    };
    while (std::getline(in, line)) {
        ++lineNo;
        const size_t first = line.find_first_not_of(" \t\r");
        if (first == std::string::npos || line[first] == '#') continue;
        const std::vector<std::string> cells = Cells(line);
        std::vector<double> values(cells.size());
        bool numeric = !cells.empty();
        for (size_t i = 0; i < cells.size() && numeric; ++i) numeric = Number(cells[i], values[i]);
        if (!numeric) {
            if (!seenData && columns == 0) {
                columns = cells.size();  // a header line names the columns
                continue;
            }
            throw bad("not a number in \"" + Shown(line) + "\"");
        }
        for (double v : values)
            if (!std::isfinite(v)) throw bad("not a finite number in \"" + Shown(line) + "\"");
        if (!seenData && columns != 0 && columns != cells.size())
            throw bad("the header has " + std::to_string(columns) + " columns, the data " + std::to_string(cells.size()));
        if (seenData && cells.size() != columns)
            throw bad("expected " + std::to_string(columns) + " columns, found " + std::to_string(cells.size()));
        columns = cells.size();
        seenData = true;
        w.vValues.push_back(values.back());
        if (columns >= 2) times.push_back(values.front());
    }
    if (w.vValues.empty()) throw HostError(ExitCode::kBadFile, "waveform file " + path + " holds no samples");
    if (columns >= 2 && times.size() >= 2) {
        w.bHasTime = true;
        w.dTimeStep = (times.back() - times.front()) / static_cast<double>(times.size() - 1);
        if (!(w.dTimeStep > 0.0))
            throw HostError(ExitCode::kBadFile, "waveform file " + path + ": the times do not increase");
        if (!std::isfinite(w.dTimeStep))
            throw HostError(ExitCode::kBadFile, "waveform file " + path + ": the times span more than a number can hold");
        for (size_t i = 1; i < times.size(); ++i) {
            const double step = times[i] - times[i - 1];
            if (std::fabs(step - w.dTimeStep) > 1e-3 * w.dTimeStep)
                throw HostError(ExitCode::kBadFile, "waveform file " + path + ": sample " + std::to_string(i + 1) +
                                                        " at " + Seconds(times[i]) + " breaks the even time step of " +
                                                        Seconds(w.dTimeStep));
        }
    }
    return w;
}

void WaveformFile::Write(const std::string& path, double sampleInterval, const std::vector<double>& input,
                         const std::vector<double>& output) {
    std::unique_ptr<FILE, int (*)(FILE*)> f(std::fopen(path.c_str(), "w"), &std::fclose);
    if (!f) throw HostError(ExitCode::kOutputFailed, "cannot write " + path);
    std::fprintf(f.get(), "time_s,input_V,output_V\n");
    for (size_t i = 0; i < output.size(); ++i)
        std::fprintf(f.get(), "%.12g,%.17g,%.17g\n", static_cast<double>(i) * sampleInterval,
                     i < input.size() ? input[i] : 0.0, output[i]);
    if (std::ferror(f.get()) != 0) throw HostError(ExitCode::kOutputFailed, "cannot write " + path);
}

}  // namespace amihost
