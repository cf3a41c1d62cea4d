// IbisLexer: lines, comments and keyword sections.
#include "tools/ibis/IbisLexer.h"

#include <cctype>
#include <set>

#include "amiparams/IbisParser/cmn.h"

namespace ibis {

namespace {

// Every keyword of IBIS 7.x, in canonical form.
const std::set<std::string> kKeywords = {
    "manufacturer", "package", "pin", "package model", "pin mapping", "diff pin", "repeater pin",
    "series pin mapping", "series switch groups", "node declarations", "end node declarations",
    "circuit call", "end circuit call", "begin emi component", "end emi component", "pin emi",
    "pin domain emi", "alternate package models", "end alternate package models", "bus label",
    "end bus label", "die supply pads", "end die supply pads", "interconnect model set",
    "end interconnect model set", "interconnect model", "end interconnect model",
    "interconnect model group", "end interconnect model group", IbisLexer::Canonical("Model_Spec"),
    "receiver thresholds",
    "add submodel", "driver schedule", "temperature range", "voltage range", "pullup reference",
    "pulldown reference", "power clamp reference", "gnd clamp reference", "external reference",
    "ttgnd", "ttpower", "pulldown", "pullup", "gnd clamp", "power clamp", "isso pu", "isso pd", "rgnd",
    "rpower", "rac", "cac", "on", "off", "r series", "l series", "rl series", "c series", "lc series",
    "rc series", "series current", "series mosfet", "ramp", "rising waveform", "falling waveform",
    "composite current", "external model", "end external model", "algorithmic model",
    "end algorithmic model", "c comp corner", "begin emi model", "end emi model",
    IbisLexer::Canonical("Submodel_Spec"),
    "gnd pulse table", "power pulse table", "end external circuit", "end package model", "oem",
    "description", "number of sections", "number of pins", "pin numbers", "merged pins", "model data",
    "end model data", "resistance matrix", "inductance matrix", "capacitance matrix", "bandwidth", "row",
    "end board description", "pin list", "path description", "reference designator map",
    "rising waveform near", "rising waveform far", "falling waveform near", "falling waveform far",
    "diff rising waveform near", "diff rising waveform far", "diff falling waveform near",
    "diff falling waveform far", "test data", "test load", "ibis ver", "file name", "file rev", "date",
    "source", "notes", "disclaimer", "copyright", "comment char", "component", "model selector", "model",
    "submodel", "define package model", "begin board description", "external circuit", "end"};


// IBIS allows no line longer than this.
const size_t kMaxLineLength = 120;

// Not through CMN_EatWhitespace: that stops the program at a long run of
// blanks unless the caller allowed any line length, and amihost does not.
std::string Trim(const std::string& s) {
    size_t first = 0;
    while (first < s.size() && CMN_IsWhitespace(s[first])) ++first;
    std::string out(s.c_str() + first);
    while (!out.empty() && CMN_IsWhitespace(out.back())) out.pop_back();
    return out;
}

}  // namespace

std::string IbisLexer::Canonical(const std::string& keyword) {
    std::string out;
    for (char c : keyword) {
        if (c == '_' || CMN_IsWhitespace(c)) {
            if (!out.empty() && out.back() != ' ') out += ' ';
        } else {
            out += static_cast<char>(tolower(static_cast<unsigned char>(c)));
        }
    }
    if (!out.empty() && out.back() == ' ') out.pop_back();
    return out;
}

std::vector<std::string> IbisLexer::Split(const std::string& line) {
    std::vector<std::string> out;
    size_t i = 0;
    while (i < line.size()) {
        while (i < line.size() && CMN_IsWhitespace(line[i])) ++i;
        size_t start = i;
        while (i < line.size() && !CMN_IsWhitespace(line[i])) ++i;
        if (i > start) out.push_back(line.substr(start, i - start));
    }
    return out;
}

std::vector<std::string> IbisLexer::SplitAssignment(const std::string& line) {
    std::string spaced;
    for (char c : line) spaced += c == '=' ? std::string(" ") : std::string(1, c);
    return Split(spaced);
}

std::vector<IbisSection> IbisLexer::Read(const std::string& text, const std::string& file, Report& report) {
    std::vector<IbisSection> sections;
    char comment = '|';
    int lineNo = 0;
    size_t pos = 0;
    while (pos < text.size()) {
        size_t end = text.find('\n', pos);
        if (end == std::string::npos) end = text.size();
        std::string raw = text.substr(pos, end - pos);
        pos = end + 1;
        ++lineNo;
        if (!raw.empty() && raw.back() == '\r') raw.pop_back();
        if (raw.size() > kMaxLineLength)
            report.Error(file, lineNo, "line is " + std::to_string(raw.size()) + " characters long, more than 120");
        size_t cut = raw.find(comment);
        // "[Comment Char] |_char" names the comment character it would otherwise lose to it.
        const std::string whole = Trim(raw);
        if (cut != std::string::npos && !whole.empty() && whole[0] == '[' && whole.find(']') != std::string::npos &&
            Canonical(whole.substr(1, whole.find(']') - 1)) == "comment char") {
            const size_t arg = raw.find_first_not_of(" \t", raw.find(']') + 1);
            if (arg != std::string::npos) cut = raw.find_first_of(" \t", arg);
        }
        const std::string line = Trim(cut == std::string::npos ? raw : raw.substr(0, cut));
        if (line.empty()) continue;
        if (line[0] == '[' && line.find(']') != std::string::npos) {
            IbisSection s;
            const size_t close = line.find(']');
            s.sWritten = line.substr(1, close - 1);
            s.sKeyword = Canonical(s.sWritten);
            s.nLine = lineNo;
            s.sArgs = Trim(line.substr(close + 1));
            s.vArgs = Split(s.sArgs);
            if (s.sKeyword == "comment char") {
                const std::string& a = s.sArgs;
                if (a.size() == 6 && a.compare(1, 5, "_char") == 0 && ispunct(static_cast<unsigned char>(a[0])))
                    comment = a[0];
                else
                    report.Error(file, lineNo, "[Comment Char] must be written as <character>_char, not " + a);
            }
            sections.push_back(std::move(s));
        } else if (sections.empty()) {
            report.Error(file, lineNo, "text before the first keyword");
        } else {
            sections.back().vBody.push_back(IbisLine{lineNo, line, Split(line)});
        }
    }
    return sections;
}

bool IbisLexer::IsKeyword(const std::string& canonical) { return kKeywords.count(canonical) != 0; }

}  // namespace ibis
