// IbisNumber: numbers as IBIS files write them. A decimal number (with an
// optional exponent) may be followed by one scale letter, T 1e12, G 1e9,
// M 1e6, k 1e3, m 1e-3, u 1e-6, n 1e-9, p 1e-12, f 1e-15, and then by unit
// letters that carry no meaning ("0.5nH", "20.0mA", "1.00V", "50ohm").
// "NA" stands for a value that is not available.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace ibis {

class IbisNumber {
public:
    // The value of token, or nothing when it is not a number.
    static std::optional<double> Parse(const std::string& token);
    static bool IsNA(const std::string& token);
    // True for a decimal number too large for a double ("1e999").
    static bool Overflows(const std::string& token);
};

// A typ/min/max triple; min and max may be NA (absent).
struct Tmm {
    double dTyp = 0;
    std::optional<double> dMin, dMax;
};

// Reads typ, min, max from tokens[first..first+2]. Returns a reason when they
// are not there or do not parse ("" on success): typ must be a number, min
// and max numbers or NA.
std::string ParseTmm(const std::vector<std::string>& tokens, size_t first, Tmm& out);

}  // namespace ibis
