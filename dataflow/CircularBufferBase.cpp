// CircularBufferBase: the out-of-line anchor of the buffer hierarchy.
#include "dataflow/CircularBufferBase.h"

namespace TesselModelBuilder {

CircularBufferBase::~CircularBufferBase() = default;

}  // namespace TesselModelBuilder
