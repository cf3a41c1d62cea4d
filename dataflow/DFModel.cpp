// DFModel: default lifecycle phases, all of which succeed and do nothing.
#include "dataflow/DFModel.h"

namespace TesselModelBuilder {

bool DFModel::Setup() { return true; }
bool DFModel::Initialize() { return true; }
bool DFModel::Run() { return true; }
bool DFModel::Finalize() { return true; }
bool DFModel::UpdateDynamicParameters() { return true; }
DFModel::~DFModel() = default;

}  // namespace TesselModelBuilder
