// TypeConverterBase / TypeConverter / ScalarToScalar: converts one sample of
// one type into another each firing. With TypeConverterRound a double becomes
// an int rounded half away from zero and saturated to the int range.
#pragma once

#include <cstdint>

#include "dataflow/CircularBuffer.h"
#include "dataflow/DFModel.h"

namespace TesselModelBuilder {

// Rounding policy: nearest integer, halves away from zero, saturating; NaN
// gives the most negative int (what x86 produces for an invalid conversion,
// made explicit here so it holds everywhere).
struct TypeConverterRound {
    static int32_t Convert(double value);
};

template <typename Base>
class TypeConverterBase : public Base {};

template <typename In, typename Out, typename Policy, typename Base>
class TypeConverter : public TypeConverterBase<Base> {
public:
    In input;
    Out output;
};

template <typename In, typename Out, typename Policy, typename Base>
class ScalarToScalar : public TypeConverter<In, Out, Policy, Base> {
public:
    bool Run() override {
        this->output[0] = Policy::Convert(this->input[0]);
        return true;
    }
};

extern template class ScalarToScalar<CircularBuffer<double>, CircularBuffer<int>,
                                     TypeConverterRound, DFModel>;

}  // namespace TesselModelBuilder
