// StatEyeReport: the statistical eye as a picture and as JSON. The picture
// shows the density of the sampled voltage per phase on a log scale
// (1 down to 1e-16 per bin), the contours at each BER level, and below it
// the bathtub curve log10 BER against phase with the levels marked.
#pragma once

#include <nlohmann/json.hpp>

#include <string>

#include "tools/eye/StatEye.h"

namespace amihost {

class StatEyeReport {
public:
    // Throws HostError(kOutputFailed) when the file cannot be written.
    static void WritePng(const StatEyeResult& eye, const std::string& title, const std::string& path);
    static nlohmann::ordered_json Json(const StatEyeResult& eye, const StatEyeSettings& settings);
    // "BER 1e-06: height 0.1234 V, width 0.531 UI", one line per level.
    static std::string Lines(const StatEyeResult& eye);
};

}  // namespace amihost
