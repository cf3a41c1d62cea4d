// Campaign: the channels' runs, then their table and the best settings.
#include "tools/host/Campaign.h"

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "tools/base/HostError.h"
#include "tools/base/InputFile.h"
#include "tools/host/RunReport.h"

namespace amihost {

namespace {

struct Point {
    std::string sChannel, sSetting;
    bool bMeasured = false;
    double dHeight = 0.0, dWidthUI = 0.0;
};

// The points of one channel's summary.json, in run order.
std::vector<Point> ReadPoints(const std::string& summary, const std::string& channel) {
    std::string text, problem;
    if (!ReadInputFile(summary, text, problem)) throw HostError(ExitCode::kOutputFailed, summary + " " + problem);
    const nlohmann::json doc = nlohmann::json::parse(text);
    std::vector<Point> points;
    for (const nlohmann::json& run : doc.at("runs")) {
        Point p;
        p.sChannel = channel;
        p.sSetting = run.contains("setting") ? run["setting"].get<std::string>() : "-";
        const nlohmann::json& eye = run.at("eye");
        p.bMeasured = eye.is_object() && eye["height_v"].is_number();
        if (p.bMeasured) p.dHeight = eye["height_v"], p.dWidthUI = eye["width_ui"];
        points.push_back(p);
    }
    return points;
}

// The larger eye height, then the wider eye, then the earlier point.
bool Better(const Point& a, const Point& b) {
    if (!b.bMeasured) return a.bMeasured;
    if (!a.bMeasured) return false;
    return a.dHeight > b.dHeight || (a.dHeight == b.dHeight && a.dWidthUI > b.dWidthUI);
}

}  // namespace

int Campaign::Run(const HostOptions& o, std::ostream& out) {
    CreateOutDir(o.sOutDir);
    const std::vector<std::string>& channels = o.vChannelFiles;
    std::vector<Point> points;
    int code = 0;
    for (size_t c = 0; c < channels.size(); ++c) {
        HostOptions one = o;
        one.vChannelFiles.clear();
        one.sChannelFile = channels[c];
        one.sOutDir = (std::filesystem::path(o.sOutDir) / ("channel" + std::to_string(c + 1))).string();
        std::ostringstream report;
        int rc = 0;
        try {
            rc = Host::Run(one, report);
        } catch (const HostError& e) {
            throw HostError(e.Code(), "channel " + channels[c] + ": " + e.what());
        }
        WriteText((std::filesystem::path(one.sOutDir) / "report.txt").string(), report.str());
        if (code == 0) code = rc;
        for (const Point& p : ReadPoints((std::filesystem::path(one.sOutDir) / "summary.json").string(), channels[c]))
            points.push_back(p);
        out << "channel " << c + 1 << "  : " << channels[c] << " (report and results in " << one.sOutDir << ")\n";
    }

    char row[512];
    std::snprintf(row, sizeof row, "%-32s  %8s  %14s  %14s\n", "channel", o.sSweepParam.c_str(), "eye height (V)",
                  "eye width (UI)");
    out << row;
    std::map<std::string, Point> bestOf;  // per channel
    std::vector<std::string> settings;    // in run order
    std::map<std::string, double> worst;  // per setting, over the channels
    for (const Point& p : points) {
        if (p.bMeasured)
            std::snprintf(row, sizeof row, "%-32s  %8s  %14.4f  %14.3f\n", p.sChannel.c_str(), p.sSetting.c_str(),
                          p.dHeight, p.dWidthUI);
        else
            std::snprintf(row, sizeof row, "%-32s  %8s  %14s  %14s\n", p.sChannel.c_str(), p.sSetting.c_str(), "-", "-");
        out << row;
        if (bestOf.count(p.sChannel) == 0 || Better(p, bestOf[p.sChannel])) bestOf[p.sChannel] = p;
        if (worst.count(p.sSetting) == 0) settings.push_back(p.sSetting), worst[p.sSetting] = HUGE_VAL;
        worst[p.sSetting] = std::fmin(worst[p.sSetting], p.bMeasured ? p.dHeight : -HUGE_VAL);
    }

    nlohmann::ordered_json perChannel = nlohmann::ordered_json::array(), list = nlohmann::ordered_json::array();
    for (const Point& p : points)
        list.push_back({{"channel", p.sChannel},
                        {"setting", p.sSetting},
                        {"eye_height_v", p.bMeasured ? nlohmann::ordered_json(p.dHeight) : nlohmann::ordered_json()},
                        {"eye_width_ui", p.bMeasured ? nlohmann::ordered_json(p.dWidthUI) : nlohmann::ordered_json()}});
    for (const std::string& ch : channels) {
        const Point& b = bestOf[ch];
        out << "best       : " << ch << ": "
            << (b.bMeasured ? o.sSweepParam + " " + b.sSetting + ", eye height " + Fmt("%.4f", b.dHeight) + " V"
                            : std::string("no measured eye"))
            << "\n";
        perChannel.push_back({{"channel", ch},
                              {"setting", b.bMeasured ? nlohmann::ordered_json(b.sSetting) : nlohmann::ordered_json()},
                              {"eye_height_v", b.bMeasured ? nlohmann::ordered_json(b.dHeight) : nlohmann::ordered_json()}});
    }
    std::string overall;
    for (const std::string& s : settings)
        if (overall.empty() || worst[s] > worst[overall]) overall = s;
    nlohmann::ordered_json best;
    if (!overall.empty() && std::isfinite(worst[overall])) {
        out << "best of all: " << o.sSweepParam << " " << overall << ", worst eye height over the "
            << channels.size() << " channels " << Fmt("%.4f", worst[overall]) << " V\n";
        best = {{"setting", overall}, {"worst_eye_height_v", worst[overall]}};
    } else {
        out << "best of all: none (no setting has a measured eye on every channel)\n";
    }
    const std::string summary = (std::filesystem::path(o.sOutDir) / "summary.json").string();
    const nlohmann::ordered_json doc = {{"library", o.sLibrary},
                                        {"ami_file", o.sAmiFile},
                                        {"parameter", o.sSweepParam},
                                        {"channels", channels},
                                        {"points", list},
                                        {"best_per_channel", perChannel},
                                        {"best_overall", best}};
    WriteText(summary, doc.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n");
    out << "wrote      : " << summary << "\n";
    return code;
}

}  // namespace amihost
