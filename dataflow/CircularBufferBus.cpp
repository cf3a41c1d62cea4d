// CircularBufferBus: the out-of-line anchor of the bus hierarchy.
#include "dataflow/CircularBufferBus.h"

namespace TesselModelBuilder {

CircularBufferBus::~CircularBufferBus() = default;

}  // namespace TesselModelBuilder
