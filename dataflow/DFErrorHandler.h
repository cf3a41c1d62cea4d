// DFErrorHandler: where blocks report problems.
//
// Every report is the block's own finished sentence written to standard error
// as one line; nothing is added to it. The source block is accepted for
// symmetry with richer hosts but not used.
#pragma once

namespace TesselModelBuilder {

class DFModel;

class DFErrorHandler {
public:
    static void PostError(DFModel* source, const char* text);
    static void PostWarning(DFModel* source, const char* text);
    static void PostInfo(DFModel* source, const char* text);
    static void PostLog(DFModel* source, const char* text);
    static void PostProgress(DFModel* source, const char* text);
    static void ClearProgress(DFModel* source);
    static bool StopRequested();
};

}  // namespace TesselModelBuilder
