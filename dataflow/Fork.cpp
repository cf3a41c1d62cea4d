// Fork: the instance the models use.
#include "dataflow/Fork.h"

namespace TesselModelBuilder {

template class Fork<CircularBuffer<double>>;

}  // namespace TesselModelBuilder
