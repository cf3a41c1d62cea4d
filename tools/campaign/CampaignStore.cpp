// CampaignStore: campaign.json and the points' files.
#include "tools/campaign/CampaignStore.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "tools/base/DeferredStop.h"
#include "tools/base/HostError.h"
#include "tools/base/InputFile.h"
#include "tools/host/RunReport.h"

namespace amihost {

namespace {

// FNV-1a, 64 bits: enough to tell campaigns apart, not meant to resist
// anyone forging one.
struct Hash {
    uint64_t v = 1469598103934665603ULL;
    void Add(const std::string& bytes) {
        for (unsigned char c : bytes) v = (v ^ c) * 1099511628211ULL;
        // The length ends each field, so that "ab","c" differs from "a","bc".
        const std::string n = "|" + std::to_string(bytes.size()) + "|";
        for (unsigned char c : n) v = (v ^ c) * 1099511628211ULL;
    }
    void AddFile(const std::string& path) {
        std::string text, problem;
        if (!path.empty() && !ReadInputFile(path, text, problem)) throw HostError(ExitCode::kBadFile, path + " " + problem);
        Add(text);
    }
    void AddNumber(double d) {
        char s[40];
        std::snprintf(s, sizeof s, "%a", d);
        Add(s);
    }
};

}  // namespace

std::string CampaignManifest::ChannelName(size_t c) const { return vChannels[c].empty() ? "built-in" : vChannels[c]; }

std::string CampaignManifest::Describe(size_t index) const {
    const size_t c = index / vSettings.size(), s = index % vSettings.size();
    return "channel " + std::to_string(c + 1) + " (" + ChannelName(c) + ")" +
           (bSweep ? ", " + sParameter + " " + vSettings[s] : std::string());
}

std::string CampaignStore::Fingerprint(const HostOptions& o) {
    Hash h;
    h.Add("amihost campaign 1");
    h.AddFile(o.sLibrary);
    h.AddFile(o.sAmiFile);
    h.AddFile(o.sIbsFile);
    h.Add(o.sComponent);
    h.Add(o.sModelName);
    for (const std::string& s : o.vSets) h.Add(s);
    h.Add("channels");
    for (const std::string& c : o.vChannelFiles) h.AddFile(c);
    h.AddFile(o.sChannelFile);
    h.AddFile(o.sInput);
    for (double d : {double(o.iPrbs), double(o.nBits), o.dBitRate, double(o.bBitRateGiven), double(o.iSamplesPerBit),
                     o.dAmplitude, double(o.bChannel), double(o.nBlock), double(o.iIgnoreBits), double(o.bSweep),
                     double(o.bStatEye), o.dNoiseRms, o.dRjRms})
        h.AddNumber(d);
    h.Add(o.sPorts);
    for (const std::string& p : o.vPorts) h.Add(p);
    h.Add(o.sSweepParam);
    char s[20];
    std::snprintf(s, sizeof s, "%016" PRIx64, h.v);
    return s;
}

void CampaignStore::WriteManifest(const std::string& dir, const CampaignManifest& m) {
    const nlohmann::ordered_json j = {{"fingerprint", m.sFingerprint}, {"library", m.sLibrary},
                                      {"ami_file", m.sAmiFile},       {"parameter", m.sParameter},
                                      {"sweep", m.bSweep},            {"channels", m.vChannels},
                                      {"settings", m.vSettings},      {"shard", m.iShard},
                                      {"shards", m.nShards}};
    WriteJson((std::filesystem::path(dir) / "campaign.json").string(), j);
}

bool CampaignStore::ReadManifest(const std::string& dir, CampaignManifest& m) {
    const std::string path = (std::filesystem::path(dir) / "campaign.json").string();
    if (!std::filesystem::exists(path)) return false;
    std::string text, problem;
    if (!ReadInputFile(path, text, problem)) throw HostError(ExitCode::kBadFile, path + " " + problem);
    try {
        const nlohmann::json j = nlohmann::json::parse(text);
        m.sFingerprint = j.at("fingerprint");
        m.sLibrary = j.at("library");
        m.sAmiFile = j.at("ami_file");
        m.sParameter = j.at("parameter");
        m.bSweep = j.at("sweep");
        m.vChannels = j.at("channels").get<std::vector<std::string>>();
        m.vSettings = j.at("settings").get<std::vector<std::string>>();
        m.iShard = j.at("shard");
        m.nShards = j.at("shards");
    } catch (const nlohmann::json::exception& e) {
        throw HostError(ExitCode::kBadFile, path + " is not an amihost campaign's: " + e.what());
    }
    if (m.vChannels.empty() || m.vSettings.empty() || m.nShards < 1 || m.iShard < 1 || m.iShard > m.nShards)
        throw HostError(ExitCode::kBadFile, path + " is not an amihost campaign's: its channels, settings or shard make no sense");
    return true;
}

std::string CampaignStore::PointPath(const std::string& dir, size_t index, const char* extension) {
    char name[40];
    std::snprintf(name, sizeof name, "point-%05zu.%s", index, extension);
    return (std::filesystem::path(dir) / "points" / name).string();
}

std::string CampaignStore::ChannelPath(const std::string& dir, size_t channel) {
    char name[40];
    std::snprintf(name, sizeof name, "channel-%05zu.json", channel + 1);
    return (std::filesystem::path(dir) / "points" / name).string();
}

void CampaignStore::WritePoint(const std::string& dir, size_t index, const PointResult& p) {
    // The eye and the result are one point's: a stop waits for both.
    const WholeFileWrite whole;
    CreateOutDir((std::filesystem::path(dir) / "points").string());
    if (p.fWriteEye) {
        const std::string png = PointPath(dir, index, "png");
        p.fWriteEye(png + ".part");
        std::error_code ec;
        std::filesystem::rename(png + ".part", png, ec);
        if (ec) throw HostError(ExitCode::kOutputFailed, "cannot write " + png + ": " + ec.message());
    }
    const nlohmann::ordered_json j = {{"index", index},
                                      {"setting", p.sSetting},
                                      {"ami_init", p.iInitResult},
                                      {"ami_getwave", p.iGetWaveResult},
                                      {"message", p.sMessage},
                                      {"first_non_finite_sample", p.nNonFinite},
                                      {"measured", p.bMeasured},
                                      {"open", p.bOpen},
                                      {"eye_height_v", p.dHeight},
                                      {"eye_width_ui", p.dWidthUI},
                                      {"eye_diagram", bool(p.fWriteEye)}};
    WriteJson(PointPath(dir, index, "json"), j);
}

bool CampaignStore::ReadPoint(const std::string& dir, size_t index, CampaignPoint& p, std::string& problem) {
    problem.clear();
    const std::string path = PointPath(dir, index, "json");
    if (!std::filesystem::exists(path)) return false;
    std::string text;
    if (!ReadInputFile(path, text, problem)) return false;
    try {
        const nlohmann::json j = nlohmann::json::parse(text);
        if (j.at("index").get<size_t>() != index) throw std::runtime_error("it names point " + j["index"].dump());
        p.nIndex = index;
        p.result.sSetting = j.at("setting");
        p.result.iInitResult = j.at("ami_init");
        p.result.iGetWaveResult = j.at("ami_getwave");
        p.result.sMessage = j.at("message");
        p.result.nNonFinite = j.at("first_non_finite_sample");
        p.result.bMeasured = j.at("measured");
        p.result.bOpen = j.at("open");
        p.result.dHeight = j.at("eye_height_v");
        p.result.dWidthUI = j.at("eye_width_ui");
        p.bHasEye = j.at("eye_diagram");
    } catch (const std::exception& e) {
        problem = "is not a point's result: " + std::string(e.what());
        return false;
    }
    return true;
}

void CampaignStore::ClearPoints(const std::string& dir) {
    const std::filesystem::path points = std::filesystem::path(dir) / "points";
    std::error_code ec;
    for (const auto& f : std::filesystem::directory_iterator(points, ec)) {
        const std::string name = f.path().filename().string();
        if (name.rfind("point-", 0) == 0 || name.rfind("channel-", 0) == 0) std::filesystem::remove(f.path(), ec);
    }
}

}  // namespace amihost
