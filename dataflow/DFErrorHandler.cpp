// DFErrorHandler: every report goes to standard error, one line each.
#include "dataflow/DFErrorHandler.h"

#include <iostream>

namespace TesselModelBuilder {

void DFErrorHandler::PostWarning(DFModel*, const char* text) {
    // A null text behaves as inserting a null char* does: the stream goes
    // bad and stays silent until someone clears it.
    if (text == nullptr)
        std::cerr.setstate(std::ios_base::badbit);
    else
        std::cerr << text;
    std::cerr << std::endl;
}

void DFErrorHandler::PostError(DFModel* source, const char* text) { PostWarning(source, text); }
void DFErrorHandler::PostInfo(DFModel* source, const char* text) { PostWarning(source, text); }
void DFErrorHandler::PostLog(DFModel* source, const char* text) { PostWarning(source, text); }
void DFErrorHandler::PostProgress(DFModel* source, const char* text) { PostWarning(source, text); }
void DFErrorHandler::ClearProgress(DFModel*) {}
bool DFErrorHandler::StopRequested() { return false; }

}  // namespace TesselModelBuilder
