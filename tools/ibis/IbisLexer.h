// IbisLexer: an .ibs, .pkg or .ebd text cut into keyword sections.
//
// A keyword is a name in square brackets at the start of a line, matched
// without regard to case and with "_" and " " the same ("[Pin]",
// "[GND Clamp]", "[gnd_clamp]"). Everything after the comment character
// (initially "|", changed by "[Comment Char] #_char") is a comment. A
// section is a keyword, the rest of its line, and the lines up to the next
// keyword, with comments removed and blank lines dropped.
#pragma once

#include <string>
#include <vector>

#include "tools/ibis/Report.h"

namespace ibis {

struct IbisLine {
    int nLine;          // 1-based line number in the file
    std::string sText;  // comment removed, blanks trimmed at both ends
    std::vector<std::string> vTokens;
};

struct IbisSection {
    std::string sKeyword;  // canonical: lower case, single blanks ("gnd clamp")
    std::string sWritten;  // as written between the brackets
    int nLine;
    std::string sArgs;               // rest of the keyword line, trimmed
    std::vector<std::string> vArgs;  // the same, as tokens
    std::vector<IbisLine> vBody;
};

class IbisLexer {
public:
    // Cuts text into sections; lines over 120 characters, text before the
    // first keyword and a malformed [Comment Char] are reported against file.
    static std::vector<IbisSection> Read(const std::string& text, const std::string& file, Report& report);

    // "GND_Clamp" and "gnd  clamp" both give "gnd clamp".
    static std::string Canonical(const std::string& keyword);
    // True for a keyword of IBIS 7.x (.ibs, .pkg, .ebd), given canonical.
    static bool IsKeyword(const std::string& canonical);
    // Blank-separated tokens of line.
    static std::vector<std::string> Split(const std::string& line);
    // "R_pkg = 0.1" and "R_pkg 0.1" alike: the tokens with a lone "=" removed
    // and "a=b" split.
    static std::vector<std::string> SplitAssignment(const std::string& line);
};

}  // namespace ibis
