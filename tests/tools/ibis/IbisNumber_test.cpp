// IbisNumber: scale letters, units, NA, and what is not a number.
#include "tools/ibis/IbisNumber.h"

#include <gtest/gtest.h>

namespace {

TEST(IbisNumber, ScaleLettersUnitsAndRejects) {
    const struct {
        const char* token;
        double value;
    } numbers[] = {{"0.5nH", 0.5e-9}, {"20.0mA", 20.0e-3}, {"-1.00V", -1.0}, {"1M", 1e6},  {"1m", 1e-3},
                   {"3k", 3e3},       {"2G", 2e9},         {"1T", 1e12},    {"4u", 4e-6}, {"7p", 7e-12},
                   {"5f", 5e-15},     {"1e-9", 1e-9},      {"50ohm", 50},   {"1F", 1},    {".5", 0.5}};
    for (const auto& n : numbers) {
        const std::optional<double> v = ibis::IbisNumber::Parse(n.token);
        ASSERT_TRUE(v.has_value()) << n.token;
        EXPECT_DOUBLE_EQ(*v, n.value) << n.token;
    }
    for (const char* bad : {"NA", "", "inf", "nan", "0x10", "V", "1.0/2", "1 0", "1n5"})
        EXPECT_FALSE(ibis::IbisNumber::Parse(bad).has_value()) << bad;
}

TEST(IbisNumber, TypMinMaxColumns) {
    ibis::Tmm v;
    EXPECT_EQ(ibis::ParseTmm({"C_comp", "1pF", "NA", "2pF"}, 1, v), "");
    EXPECT_DOUBLE_EQ(v.dTyp, 1e-12);
    EXPECT_FALSE(v.dMin.has_value());
    EXPECT_DOUBLE_EQ(*v.dMax, 2e-12);
    EXPECT_EQ(ibis::ParseTmm({"NA", "1", "2"}, 0, v), "typ value must not be NA");
    EXPECT_EQ(ibis::ParseTmm({"1", "x", "2"}, 0, v), "min value x is not a number");
    EXPECT_EQ(ibis::ParseTmm({"1", "2"}, 0, v), "needs typ, min and max values");
}

}  // namespace
