// IbsFile: the little of an IBIS file that a host needs to run a receiver's
// algorithmic model: which component and model, the [Algorithmic Model]'s
// Executable line for this platform (library and .ami, relative to the
// .ibs), and the receiver's termination where the model gives one:
// [Rgnd] and [Rpower] in parallel, else the slope of the typical
// [GND Clamp] curve just above 0 V (an on-die termination written as a
// clamp). The text is cut into sections and numbers read as ibischeck
// reads them, and what that refuses (a line over 120 characters, text before
// the first keyword) is refused here too. Everything else in the file is
// ignored; checking it against the IBIS rules is that tool's job.
#pragma once

#include <string>
#include <vector>

namespace amihost {

struct IbsReceiver {
    std::string sComponent;
    std::string sModel;
    std::string sPlatform;          // of the Executable line chosen
    std::string sLibrary;           // path, relative to the working folder
    std::string sAmiFile;           // likewise
    double dTerminationOhms = 0.0;  // per input, to ground; 0: the model gives none
    std::string sTermination;       // where it came from ("[Rgnd]", "[GND Clamp] slope", "")
};

class IbsFile {
public:
    // component / model: "" to take the only one there is (for the model:
    // the only model with an [Algorithmic Model] used by the component's
    // pins). Throws HostError(kBadFile) naming the file and the choices.
    static IbsReceiver Find(const std::string& path, const std::string& component, const std::string& model);
    static IbsReceiver Parse(const std::string& text, const std::string& origin, const std::string& folder,
                             const std::string& component, const std::string& model);
};

}  // namespace amihost
