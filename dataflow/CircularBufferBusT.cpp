// CircularBufferBusT<B>: the bus type the models use.
#include "dataflow/CircularBufferBusT.h"

namespace TesselModelBuilder {

template class CircularBufferBusT<CircularBuffer<double>>;

}  // namespace TesselModelBuilder
