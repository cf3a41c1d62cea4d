// ScalarToScalar with TypeConverterRound: halves away from zero, saturation
// at the int range, NaN to the most negative int.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "dataflow/TypeConverter.h"

using namespace TesselModelBuilder;

TEST(TypeConverter, RoundsHalvesAwayFromZeroAndSaturates) {
    using Converter = ScalarToScalar<CircularBuffer<double>, CircularBuffer<int>,
                                     TypeConverterRound, DFModel>;
    const double inf = std::numeric_limits<double>::infinity();
    const struct { double in; int out; } cases[] = {
        {0.5, 1}, {-2.5, -3}, {1.4999999, 1}, {0.49999999999999994, 0}, {-0.0, 0},
        {2147483647.5, 2147483647}, {3.0e9, 2147483647}, {-2147483648.4, INT32_MIN}, {-3.0e9, INT32_MIN},
        {inf, 2147483647}, {-inf, INT32_MIN}, {std::nan(""), INT32_MIN},
    };
    Converter converter;
    double in = 0;
    int out = 0;
    converter.input.SetBuffer(&in, 1, 1, 0);
    converter.output.SetBuffer(&out, 1, 1, 0);
    for (const auto& c : cases) {
        in = c.in;
        out = 12345;
        EXPECT_TRUE(converter.Run());
        EXPECT_EQ(out, c.out) << "input " << c.in;
    }
}
