// IbisNumber: decimal numbers with IBIS scale letters and units.
#include "tools/ibis/IbisNumber.h"

#include <cctype>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace ibis {

namespace {

double Scale(char c) {
    switch (c) {
        case 'T': return 1e12;
        case 'G': return 1e9;
        case 'M': return 1e6;
        case 'k': return 1e3;
        case 'm': return 1e-3;
        case 'u': return 1e-6;
        case 'n': return 1e-9;
        case 'p': return 1e-12;
        case 'f': return 1e-15;
        default: return 0;
    }
}

}  // namespace

std::optional<double> IbisNumber::Parse(const std::string& token) {
    const char* s = token.c_str();
    // strtod would also take "inf", "nan" and hexadecimal; IBIS numbers are
    // decimal only.
    const char* digits = (*s == '+' || *s == '-') ? s + 1 : s;
    if (!isdigit(static_cast<unsigned char>(*digits)) &&
        !(*digits == '.' && isdigit(static_cast<unsigned char>(digits[1]))))
        return std::nullopt;
    char* end = nullptr;
    double value = strtod(s, &end);
    for (const char* p = digits; p < end; ++p)
        if (!isdigit(static_cast<unsigned char>(*p)) && strchr(".eE+-", *p) == nullptr) return std::nullopt;
    if (*end != '\0' && Scale(*end) != 0) value *= Scale(*end++);
    for (; *end != '\0'; ++end)
        if (!isalpha(static_cast<unsigned char>(*end))) return std::nullopt;
    // 1e999 would read as infinity: no quantity of a model is.
    if (!std::isfinite(value)) return std::nullopt;
    return value;
}

bool IbisNumber::Overflows(const std::string& token) {
    const char* s = token.c_str();
    const char* digits = (*s == '+' || *s == '-') ? s + 1 : s;
    return isdigit(static_cast<unsigned char>(*digits)) && std::isinf(strtod(s, nullptr));
}

// Reserved words are not case sensitive in IBIS: "na" is NA.
bool IbisNumber::IsNA(const std::string& token) {
    return token.size() == 2 && (token[0] == 'N' || token[0] == 'n') && (token[1] == 'A' || token[1] == 'a');
}

std::string ParseTmm(const std::vector<std::string>& tokens, size_t first, Tmm& out) {
    static const char* const kColumn[] = {"typ", "min", "max"};
    if (tokens.size() < first + 3) return "needs typ, min and max values";
    for (size_t i = 0; i < 3; ++i) {
        const std::string& t = tokens[first + i];
        if (IbisNumber::IsNA(t)) {
            if (i == 0) return "typ value must not be NA";
            continue;
        }
        std::optional<double> v = IbisNumber::Parse(t);
        if (!v) return std::string(kColumn[i]) + " value " + t + (IbisNumber::Overflows(t) ? " is out of range" : " is not a number");
        if (i == 0) out.dTyp = *v;
        else if (i == 1) out.dMin = v;
        else out.dMax = v;
    }
    return "";
}

}  // namespace ibis
