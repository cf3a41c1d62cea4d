// TypeConverter: the rounding policy and the instance the models use.
#include "dataflow/TypeConverter.h"

#include <cmath>

namespace TesselModelBuilder {

int32_t TypeConverterRound::Convert(double value) {
    const double rounded = std::round(value);
    if (rounded > 2147483647.0) return 2147483647;
    if (rounded < -2147483648.0) return INT32_MIN;
    if (std::isnan(rounded)) return INT32_MIN;
    return static_cast<int32_t>(rounded);
}

template class ScalarToScalar<CircularBuffer<double>, CircularBuffer<int>,
                              TypeConverterRound, DFModel>;

}  // namespace TesselModelBuilder
