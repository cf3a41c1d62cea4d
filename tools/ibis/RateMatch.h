// RateMatch: keeps a model's own timing parameters in step with the host's
// sample interval. A model that designs its filters from a SampleRate
// parameter (and counts samples per UI from SamplesPerBit) equalizes at the
// wrong frequencies when they disagree with the waveform it is handed, and
// nothing inside the model can tell. The host therefore sets them itself:
//
//   SampleRate    = 1 / sample interval   (samples per second)
//   SamplesPerBit = samples per UI of the stimulus
//
// unless the user set them with --set; an override that disagrees is kept
// (the user may mean it) but reported as a warning.
#pragma once

#include <string>
#include <vector>

#include "tools/ibis/AmiFile.h"
#include "tools/ibis/ParameterString.h"

namespace amihost {

struct RateSetting {
    std::string sName;        // SampleRate or SamplesPerBit
    std::string sHostValue;   // what the host's timing asks for
    std::string sUsedValue;   // what goes to AMI_Init
    bool bOverridden = false; // the user set it with --set
    bool bAgrees = true;      // the value used equals the host's
};

struct RateMatchResult {
    std::vector<RateSetting> vSettings;   // one per timing parameter the model declares
    std::vector<std::string> vWarnings;   // one line per disagreement
};

class RateMatch {
public:
    // params: the parameter string after the user's overrides; sets: those
    // overrides as given ("NAME=VALUE"). Throws HostError(kBadParameter)
    // when the host's value does not fit the parameter's Range.
    static RateMatchResult Apply(ParameterString& params, const AmiFile& ami, const std::vector<std::string>& sets,
                                 double sampleInterval, int samplesPerBit);
};

}  // namespace amihost
