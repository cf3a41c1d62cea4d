// CircularBuffer<T>: the two element types the models use.
#include "dataflow/CircularBuffer.h"

namespace TesselModelBuilder {

template class CircularBuffer<double>;
template class CircularBuffer<int>;

}  // namespace TesselModelBuilder
