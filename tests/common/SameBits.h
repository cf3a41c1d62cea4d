// Test helpers: a double as its exact %a text, and bit-for-bit equality of
// sample arrays (a mismatch names the first differing sample).
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace kv2_test {

inline std::string Hex(double v) {
    char text[40];
    snprintf(text, sizeof text, "%a", v);
    return text;
}

inline testing::AssertionResult SameBits(const double* a, const double* b, size_t n) {
    for (size_t i = 0; i < n; ++i) {
        if (std::memcmp(&a[i], &b[i], sizeof(double)) == 0) continue;
        char text[96];
        snprintf(text, sizeof text, "%a vs %a", a[i], b[i]);
        return testing::AssertionFailure() << "sample " << i << ": " << text;
    }
    return testing::AssertionSuccess();
}

inline testing::AssertionResult SameBits(const std::vector<double>& a, const std::vector<double>& b) {
    if (a.size() != b.size()) return testing::AssertionFailure() << "sizes " << a.size() << " and " << b.size();
    return SameBits(a.data(), b.data(), a.size());
}

}  // namespace kv2_test
