// RateMatch: SampleRate and SamplesPerBit set from the host's timing.
#include "tools/ibis/RateMatch.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "tools/base/HostError.h"

namespace amihost {

namespace {

// Relative tolerance for "the same rate": the rate is 1 / interval, which
// rounds, and users write it with a few digits.
const double kRateTolerance = 1e-9;

bool SetByUser(const std::vector<std::string>& sets, const AmiParameter& p) {
    for (const std::string& s : sets) {
        const std::string name = s.substr(0, s.find('='));
        if (name == p.sPath || name == p.vPath.back()) return true;
    }
    return false;
}

bool Same(const std::string& text, double want) {
    char* end = nullptr;
    const double v = std::strtod(text.c_str(), &end);
    return end != text.c_str() && *end == '\0' && std::fabs(v - want) <= kRateTolerance * std::fabs(want);
}

}  // namespace

RateMatchResult RateMatch::Apply(ParameterString& params, const AmiFile& ami, const std::vector<std::string>& sets,
                                 double sampleInterval, int samplesPerBit) {
    RateMatchResult result;
    char rate[40];
    std::snprintf(rate, sizeof rate, "%.12g", 1.0 / sampleInterval);
    const struct { const char* name; std::string value; double number; } wanted[] = {
        {"SampleRate", rate, 1.0 / sampleInterval},
        {"SamplesPerBit", std::to_string(samplesPerBit), static_cast<double>(samplesPerBit)},
    };
    for (const auto& w : wanted) {
        const AmiParameter* p = ami.Find(w.name);
        if (p == nullptr || !p->IsInput()) continue;
        RateSetting s;
        s.sName = p->sPath;
        s.sHostValue = w.value;
        s.bOverridden = SetByUser(sets, *p);
        if (!s.bOverridden && !Same(params.Get(p->sPath), w.number)) {
            try {
                params.Set(p->sPath, w.value);
            } catch (const HostError& e) {
                throw HostError(ExitCode::kBadParameter,
                                std::string(e.what()) + " (the host's timing asks for " + w.name + " " + w.value +
                                    "; change --bit-rate / --samples-per-bit, or --set " + w.name + " yourself)");
            }
        }
        s.sUsedValue = params.Get(p->sPath);
        s.bAgrees = Same(s.sUsedValue, w.number);
        if (!s.bAgrees)
            result.vWarnings.push_back("WARNING: " + s.sName + " is " + s.sUsedValue + " but the waveform has " +
                                       w.value + (s.sName == "SamplesPerBit" ? " samples per bit" : " samples per second") +
                                       ": the model will equalize at the wrong frequencies");
        result.vSettings.push_back(s);
    }
    return result;
}

}  // namespace amihost
