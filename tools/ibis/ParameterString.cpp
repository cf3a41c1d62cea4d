// ParameterString: the parameter text passed to AMI_Init, with checked
// overrides.
#include "tools/ibis/ParameterString.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>

#include "tools/base/HostError.h"

namespace amihost {

namespace {

// Decimal only, with nothing around it: the model's own parser reads no
// blanks inside a value and no hexadecimal.
bool PlainNumber(const std::string& s) {
    return !s.empty() && !std::isspace(static_cast<unsigned char>(s[0])) && s.find_first_of("xX") == std::string::npos;
}

bool ParseInteger(const std::string& s, long long& out) {
    if (!PlainNumber(s)) return false;
    char* end = nullptr;
    errno = 0;
    out = std::strtoll(s.c_str(), &end, 10);
    return errno == 0 && *end == '\0';
}

bool ParseFloat(const std::string& s, double& out) {
    if (!PlainNumber(s)) return false;
    char* end = nullptr;
    out = std::strtod(s.c_str(), &end);
    return *end == '\0' && std::isfinite(out);
}

bool IsNumericType(const std::string& type) {
    return type == "Integer" || type == "Float" || type == "UI" || type == "Tap";
}

std::string Quoted(const std::string& s) {
    if (s.size() >= 2 && s.front() == '"' && s.back() == '"') return s;
    return "\"" + s + "\"";
}

HostError Bad(const AmiParameter& p, const std::string& value, const std::string& why) {
    return HostError(ExitCode::kBadParameter, "parameter " + p.sPath + " cannot be " + value + ": " + why);
}

// The value as it goes into the text, after checking it against the
// parameter's type and format.
std::string Checked(const AmiParameter& p, const std::string& value) {
    double number = 0.0;
    std::string text = value;
    if (p.sType == "Integer") {
        long long i;
        if (!ParseInteger(value, i)) throw Bad(p, value, "it is not an integer");
        number = static_cast<double>(i);
    } else if (IsNumericType(p.sType)) {
        if (!ParseFloat(value, number)) throw Bad(p, value, "it is not a number");
    } else if (p.sType == "Boolean") {
        if (value != "True" && value != "False") throw Bad(p, value, "a Boolean is True or False");
    } else if (p.sType == "String") {
        const std::string inner = Quoted(value).substr(1, Quoted(value).size() - 2);
        if (inner.find('"') != std::string::npos) throw Bad(p, value, "a string cannot hold a double quote");
        text = Quoted(value);
    }

    const bool bounded = p.sFormat == "Range" || p.sFormat == "Increment" || p.sFormat == "Steps";
    if (bounded && IsNumericType(p.sType) && p.vFormat.size() >= 3) {
        double lo, hi;
        if (ParseFloat(p.vFormat[1], lo) && ParseFloat(p.vFormat[2], hi) && (number < lo || number > hi))
            throw Bad(p, value, "its range is " + p.vFormat[1] + " to " + p.vFormat[2]);
    } else if (p.sFormat == "List" && !p.vFormat.empty()) {
        bool listed = false;
        std::string choices;
        for (const std::string& entry : p.vFormat) {
            double e;
            if (IsNumericType(p.sType) && ParseFloat(entry, e))
                listed = listed || e == number;
            else
                listed = listed || entry == text;
            choices += (choices.empty() ? "" : ", ") + entry;
        }
        if (!listed) throw Bad(p, value, "it must be one of " + choices);
    }
    return text;
}

}  // namespace

ParameterString::ParameterString(const AmiFile& file) : m_sRoot(file.RootName()) {
    for (const AmiParameter& p : file.ModelSpecific()) {
        if (!p.IsInput()) continue;
        m_vEntries.push_back({p, p.sType == "String" ? Quoted(p.sDefault) : p.sDefault});
        m_sKnown += (m_sKnown.empty() ? "" : ", ") + p.sPath;
    }
}

ParameterString::Entry& ParameterString::Lookup(const std::string& name) {
    return const_cast<Entry&>(static_cast<const ParameterString*>(this)->Lookup(name));
}

const ParameterString::Entry& ParameterString::Lookup(const std::string& name) const {
    const Entry* byLastName = nullptr;
    int matches = 0;
    for (const Entry& e : m_vEntries) {
        if (e.param.sPath == name) return e;
        if (e.param.vPath.back() == name) {
            byLastName = &e;
            ++matches;
        }
    }
    if (matches == 1) return *byLastName;
    throw HostError(ExitCode::kBadParameter,
                    "unknown input parameter " + name + " (the model takes: " +
                        (m_sKnown.empty() ? std::string("none") : m_sKnown) + ")");
}

void ParameterString::Set(const std::string& name, const std::string& value) {
    Entry& e = Lookup(name);
    // Blanks around a value are the shell's, not the value's.
    const size_t first = value.find_first_not_of(" \t"), last = value.find_last_not_of(" \t");
    const std::string trimmed = first == std::string::npos ? std::string() : value.substr(first, last - first + 1);
    const size_t longest = AmiFile::LongestBlankRun(trimmed);
    if (longest > AmiFile::kMaxBlankRun)
        throw HostError(ExitCode::kBadParameter, "parameter " + name + " cannot hold " + std::to_string(longest) +
                                                     " blanks in a row: the model's parser reads at most " +
                                                     std::to_string(AmiFile::kMaxBlankRun));
    e.sValue = Checked(e.param, trimmed);
}

void ParameterString::SetAssignment(const std::string& assignment) {
    const size_t eq = assignment.find('=');
    if (eq == std::string::npos || eq == 0)
        throw HostError(ExitCode::kBadParameter, "--set takes NAME=VALUE, not " + assignment);
    Set(assignment.substr(0, eq), assignment.substr(eq + 1));
}

std::string ParameterString::Get(const std::string& name) const { return Lookup(name).sValue; }

std::string ParameterString::Text() const {
    std::string text = "(" + m_sRoot;
    std::vector<std::string> open;  // groups currently open
    for (const Entry& e : m_vEntries) {
        const std::vector<std::string>& path = e.param.vPath;
        size_t common = 0;
        while (common < open.size() && common + 1 < path.size() && open[common] == path[common]) ++common;
        for (size_t i = open.size(); i > common; --i) text += ")";
        open.resize(common);
        for (size_t i = common; i + 1 < path.size(); ++i) {
            text += " (" + path[i];
            open.push_back(path[i]);
        }
        text += " (" + path.back() + " " + e.sValue + ")";
    }
    for (size_t i = 0; i < open.size(); ++i) text += ")";
    return text + ")";
}

std::vector<std::string> ParameterString::SweepValues(const std::string& name) const {
    const AmiParameter& p = Lookup(name).param;
    std::vector<std::string> values;
    long long lo, hi;
    const bool range = p.sType == "Integer" && p.sFormat == "Range" && p.vFormat.size() >= 3 &&
                       ParseInteger(p.vFormat[1], lo) && ParseInteger(p.vFormat[2], hi) && lo <= hi;
    // The count in unsigned arithmetic: hi - lo overflows a long long for
    // the widest ranges.
    const unsigned long long span = range ? static_cast<unsigned long long>(hi) - static_cast<unsigned long long>(lo) : 0;
    if (range && span >= 1000) {
        throw HostError(ExitCode::kBadParameter, "cannot sweep " + p.sPath + ": its Range " + p.vFormat[1] + " to " +
                                                     p.vFormat[2] + " has more than 1000 values");
    } else if (range) {
        for (long long v = lo;; ++v) {
            values.push_back(std::to_string(v));
            if (v == hi) break;
        }
    } else if (p.sFormat == "List") {
        values = p.vFormat;
    } else {
        throw HostError(ExitCode::kBadParameter,
                        "cannot sweep " + p.sPath + ": it has neither an Integer Range nor a List");
    }
    return values;
}

}  // namespace amihost
