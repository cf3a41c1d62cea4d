// IbisLexer: lines, comments and keyword sections.
#include "tools/ibis/IbisLexer.h"

#include <cctype>

#include "amiparams/IbisParser/cmn.h"

namespace ibis {

namespace {

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
        const size_t cut = raw.find(comment);
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

}  // namespace ibis
