// Mux: the instance the models use.
#include "dataflow/Mux.h"

namespace TesselModelBuilder {

template class Mux<CircularBuffer<double>>;

}  // namespace TesselModelBuilder
