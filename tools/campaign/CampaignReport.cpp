// CampaignReport: the table, the best settings, summary.json and report.html.
#include "tools/campaign/CampaignReport.h"

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>

#include "tools/base/HostError.h"
#include "tools/base/HtmlPage.h"
#include "tools/base/InputFile.h"
#include "tools/host/RunReport.h"

namespace amihost {

namespace {

// The larger eye height, then the wider eye, then the earlier point.
bool Better(const PointResult& a, const PointResult& b) {
    if (!b.bMeasured) return a.bMeasured;
    if (!a.bMeasured) return false;
    return a.dHeight > b.dHeight || (a.dHeight == b.dHeight && a.dWidthUI > b.dWidthUI);
}

std::string Status(const PointResult& p) {
    if (p.iInitResult == 0) return "AMI_Init failed";
    if (p.iGetWaveResult == 0) return "AMI_GetWave failed";
    if (p.nNonFinite != 0) return "sample " + std::to_string(p.nNonFinite) + " not finite";
    return p.bOpen ? "open" : "closed";
}

int Code(const PointResult& p) {
    if (p.iInitResult == 0) return static_cast<int>(ExitCode::kInitFailed);
    if (p.iGetWaveResult == 0) return static_cast<int>(ExitCode::kGetWaveFailed);
    if (p.nNonFinite != 0) return static_cast<int>(ExitCode::kNonFiniteOutput);
    return 0;
}

nlohmann::ordered_json Number(bool known, double v) { return known ? nlohmann::ordered_json(v) : nlohmann::ordered_json(); }

}  // namespace

int CampaignReport::Finish(const CampaignManifest& m, const std::vector<CampaignPoint>& points,
                           const std::string& outDir, std::ostream& out) {
    const size_t settings = m.vSettings.size();
    auto settingName = [&](size_t s) { return m.vSettings[s].empty() ? std::string("-") : m.vSettings[s]; };
    size_t held = 0;
    for (size_t i = 0; i < m.Points(); ++i) held += m.Holds(i) ? 1 : 0;
    const bool whole = m.nShards == 1 && points.size() == m.Points();

    // What the channels' runs said of them, where this folder has it.
    nlohmann::ordered_json details = nlohmann::ordered_json::array();
    std::vector<std::vector<std::string>> channelRows;
    for (size_t c = 0; c < m.vChannels.size(); ++c) {
        std::string text, problem;
        if (!ReadInputFile(CampaignStore::ChannelPath(outDir, c), text, problem)) {
            details.push_back(nullptr);
            continue;
        }
        const nlohmann::ordered_json j = nlohmann::ordered_json::parse(text);
        details.push_back(j);
        std::string warnings;
        for (const auto& w : j.value("warnings", nlohmann::ordered_json::array())) {
            std::string text = w.get<std::string>();
            if (text.rfind("WARNING: ", 0) == 0) text.erase(0, 9);
            out << "WARNING: " << m.ChannelName(c) << ": " << text << "\n";
            warnings += (warnings.empty() ? "" : "; ") + text;
        }
        const auto number = [&](const char* key, double scale, const char* format) {
            return j.contains(key) && j[key].is_number() ? Fmt(format, j[key].get<double>() * scale) : std::string("-");
        };
        channelRows.push_back({m.ChannelName(c), j.value("model", std::string()), number("loss_at_nyquist_db", 1.0, "%.1f"),
                               number("delay_s", 1e9, "%.3f"), warnings});
    }

    char row[512];
    std::snprintf(row, sizeof row, "%-32s  %8s  %14s  %14s\n", "channel", m.sParameter.c_str(), "eye height (V)",
                  "eye width (UI)");
    out << row;
    int code = 0;
    std::vector<std::vector<std::string>> cells;
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    std::map<size_t, const CampaignPoint*> bestOf;  // per channel
    std::vector<double> worst(settings, HUGE_VAL);   // per setting, over the channels
    for (const CampaignPoint& cp : points) {
        const PointResult& p = cp.result;
        const size_t c = cp.nIndex / settings, s = cp.nIndex % settings;
        const std::string height = p.bMeasured ? Fmt("%.4f", p.dHeight) : "-";
        const std::string width = p.bMeasured ? Fmt("%.3f", p.dWidthUI) : "-";
        std::snprintf(row, sizeof row, "%-32s  %8s  %14s  %14s\n", m.ChannelName(c).c_str(), settingName(s).c_str(),
                      height.c_str(), width.c_str());
        out << row;
        cells.push_back({m.ChannelName(c), settingName(s), height, width, Status(p)});
        list.push_back({{"channel", m.ChannelName(c)},
                        {"setting", settingName(s)},
                        {"status", Status(p)},
                        {"eye_height_v", Number(p.bMeasured, p.dHeight)},
                        {"eye_width_ui", Number(p.bMeasured, p.dWidthUI)}});
        if (code == 0) code = Code(p);
        if (bestOf.count(c) == 0 || Better(p, bestOf[c]->result)) bestOf[c] = &cp;
        worst[s] = std::fmin(worst[s], p.bMeasured ? p.dHeight : -HUGE_VAL);
    }

    HtmlPage page("amihost campaign");
    page.Settings({{"library", m.sLibrary},
                   {"ami file", m.sAmiFile},
                   {"swept parameter", m.bSweep ? m.sParameter : std::string("none")},
                   {"channels", std::to_string(m.vChannels.size())},
                   {"points", std::to_string(m.Points())},
                   {"fingerprint", m.sFingerprint}});
    if (!channelRows.empty()) {
        page.Heading("Channels");
        page.Table("channels", {"channel", "model", "loss at Nyquist (dB)", "delay (ns)", "warnings"}, channelRows);
    }
    page.Heading("Results");
    page.Table("results", {"channel", m.sParameter, "eye height (V)", "eye width (UI)", "status"}, cells);

    nlohmann::ordered_json perChannel = nlohmann::ordered_json::array(), best;
    const std::string summary = (std::filesystem::path(outDir) / "summary.json").string();
    const std::string html = (std::filesystem::path(outDir) / "report.html").string();
    if (!whole) {
        const std::string line = (m.nShards > 1 ? "shard " + std::to_string(m.iShard) + " of " +
                                                      std::to_string(m.nShards) + ": " : std::string()) +
                                 std::to_string(points.size()) + " of its " + std::to_string(held) +
                                 " points have results" +
                                 (m.nShards > 1 ? "; amihost merge combines the shards" : std::string());
        out << "campaign   : " << line << "\n";
        page.Paragraph(line);
    } else {
        page.Heading("Best settings");
        for (size_t c = 0; c < m.vChannels.size(); ++c) {
            const CampaignPoint* b = bestOf[c];
            const bool known = b != nullptr && b->result.bMeasured;
            const std::string s = known ? settingName(b->nIndex % settings) : std::string();
            const std::string line = m.ChannelName(c) + ": " +
                                     (known ? m.sParameter + " " + s + ", eye height " + Fmt("%.4f", b->result.dHeight) + " V"
                                            : std::string("no measured eye"));
            out << "best       : " << line << "\n";
            page.Paragraph(line);
            perChannel.push_back({{"channel", m.ChannelName(c)},
                                  {"setting", known ? nlohmann::ordered_json(s) : nlohmann::ordered_json()},
                                  {"eye_height_v", Number(known, known ? b->result.dHeight : 0.0)}});
        }
        size_t overall = settings;
        for (size_t s = 0; s < settings; ++s)
            if (std::isfinite(worst[s]) && (overall == settings || worst[s] > worst[overall])) overall = s;
        std::string line;
        if (overall < settings) {
            line = m.sParameter + " " + settingName(overall) + ", worst eye height over the " +
                   (m.vChannels.size() == 1 ? std::string("1 channel ")
                                            : std::to_string(m.vChannels.size()) + " channels ") +
                   Fmt("%.4f", worst[overall]) + " V";
            best = {{"setting", settingName(overall)}, {"worst_eye_height_v", worst[overall]}};
        } else {
            line = "none (no setting has a measured eye on every channel)";
        }
        out << "best of all: " << line << "\n";
        page.Paragraph("best of all: " + line);
        page.Heading("Eye diagrams of each channel's best setting");
        for (size_t c = 0; c < m.vChannels.size(); ++c)
            if (bestOf[c] != nullptr && bestOf[c]->bHasEye)
                page.Image(m.ChannelName(c) + ", " + m.sParameter + " " + settingName(bestOf[c]->nIndex % settings),
                           CampaignStore::PointPath(outDir, bestOf[c]->nIndex, "png"));
        for (size_t c = 0; c < m.vChannels.size(); ++c) {
            const std::filesystem::path stat =
                std::filesystem::path(outDir) / ("channel" + std::to_string(c + 1)) / "stat_eye.png";
            if (std::filesystem::exists(stat)) page.Image(m.ChannelName(c) + ": statistical eye and bathtub", stat.string());
        }
    }
    const nlohmann::ordered_json doc = {{"library", m.sLibrary},
                                        {"ami_file", m.sAmiFile},
                                        {"parameter", m.sParameter},
                                        {"fingerprint", m.sFingerprint},
                                        {"shard", m.iShard},
                                        {"shards", m.nShards},
                                        {"channels", m.vChannels},
                                        {"channel_details", details},
                                        {"points", list},
                                        {"best_per_channel", perChannel},
                                        {"best_overall", best}};
    WriteJson(summary, doc);
    WriteText(html, page.Text());
    out << "wrote      : " << summary << " " << html << "\n";
    return code;
}

}  // namespace amihost
