// ConstUnTimed: the instance the models use.
#include "dataflow/ConstUnTimed.h"

namespace TesselModelBuilder {

template class ConstUnTimedBase<double, CircularBuffer<double>>;
template class ConstUnTimed<double>;

}  // namespace TesselModelBuilder
