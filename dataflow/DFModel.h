// DFModel: the base of every dataflow block and generated model.
//
// A block lives through four phases, each returning true on success:
// Setup (check parameters), Initialize (wire and reset state), Run (one
// firing) and Finalize. Every phase defaults to success so that a block only
// overrides what it needs.
#pragma once

namespace TesselModelBuilder {

class DFModel {
public:
    DFModel() = default;
    DFModel(const DFModel&) = default;
    DFModel& operator=(const DFModel&) = default;

    virtual bool Setup();
    virtual bool Initialize();
    virtual bool Run();
    virtual bool Finalize();
    virtual bool UpdateDynamicParameters();
    virtual ~DFModel();
};

}  // namespace TesselModelBuilder
