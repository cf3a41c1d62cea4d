// Campaign: the channels' runs, each point kept as it ends, then the report;
// and the merging of shards.
#include "tools/campaign/Campaign.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <exception>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <thread>

#include "tools/base/HostError.h"
#include "tools/base/InputFile.h"
#include "tools/base/ProgressBar.h"
#include "tools/campaign/CampaignReport.h"
#include "tools/campaign/CampaignStore.h"
#include "tools/host/RunReport.h"
#include "tools/ibis/AmiFile.h"
#include "tools/ibis/IbsFile.h"
#include "tools/ibis/ParameterString.h"

namespace amihost {

namespace {

std::vector<CampaignPoint> ReadHeld(const CampaignManifest& m, const std::string& dir) {
    std::vector<CampaignPoint> points;
    for (size_t i = 0; i < m.Points(); ++i) {
        CampaignPoint p;
        std::string problem;
        if (m.Holds(i) && CampaignStore::ReadPoint(dir, i, p, problem)) points.push_back(p);
    }
    return points;
}

std::string ChannelDir(const std::string& out, size_t c) {
    return (std::filesystem::path(out) / ("channel" + std::to_string(c + 1))).string();
}

std::string Shard(const CampaignManifest& m) {
    return "shard " + std::to_string(m.iShard) + " of " + std::to_string(m.nShards);
}

}  // namespace

bool Campaign::Wanted(const HostOptions& o) { return o.vChannelFiles.size() > 1 || o.nShards > 1 || o.bResume; }

int Campaign::Run(const HostOptions& given, std::ostream& out) {
    HostOptions o = given;
    if (o.bDatasheet)
        throw HostError(ExitCode::kBadParameter,
                        "--datasheet measures the model alone: it takes one channel, no --shard and no --resume");
    if (o.bStatEye && o.nShards > 1)
        throw HostError(ExitCode::kBadParameter, "--stat-eye is computed for each channel's best setting, which no "
                                                 "shard knows: run the campaign without --shard");
    if (!o.sIbsFile.empty() && (o.sLibrary.empty() || o.sAmiFile.empty())) {
        const IbsReceiver rx = IbsFile::Find(o.sIbsFile, o.sComponent, o.sModelName);
        if (o.sLibrary.empty()) o.sLibrary = rx.sLibrary;
        if (o.sAmiFile.empty()) o.sAmiFile = rx.sAmiFile;
    }
    CampaignManifest m;
    m.sLibrary = o.sLibrary;
    m.sAmiFile = o.sAmiFile;
    m.sParameter = o.sSweepParam;
    m.bSweep = o.bSweep;
    m.vChannels = o.vChannelFiles.empty() ? std::vector<std::string>{o.sChannelFile} : o.vChannelFiles;
    ParameterString base(AmiFile::Load(o.sAmiFile));
    for (const std::string& s : o.vSets) base.SetAssignment(s);
    if (o.bSweep) {
        m.vSettings = base.SweepValues(o.sSweepParam);
        if (m.vSettings.empty()) throw HostError(ExitCode::kBadParameter, o.sSweepParam + " has no values to sweep");
    } else {
        // One point per channel, at the parameter's value ("" for a model without it).
        m.vSettings = {""};
        try {
            m.vSettings[0] = base.Get(o.sSweepParam);
        } catch (const HostError&) {
        }
    }
    m.iShard = o.iShard;
    m.nShards = o.nShards;
    m.sFingerprint = CampaignStore::Fingerprint(o);

    CreateOutDir(o.sOutDir);
    CampaignManifest before;
    if (o.bResume && CampaignStore::ReadManifest(o.sOutDir, before)) {
        if (before.sFingerprint != m.sFingerprint)
            throw HostError(ExitCode::kBadParameter,
                            "--resume: " + o.sOutDir + " holds the results of another campaign (fingerprint " +
                                before.sFingerprint + ", this one " + m.sFingerprint +
                                "): the library, the .ami, the channels or the options differ");
        if (before.iShard != m.iShard || before.nShards != m.nShards)
            throw HostError(ExitCode::kBadParameter, "--resume: " + o.sOutDir + " holds " + Shard(before) + ", not " + Shard(m));
    } else if (!o.bResume) {
        CampaignStore::ClearPoints(o.sOutDir);
    }
    CampaignStore::WriteManifest(o.sOutDir, m);

    std::map<std::string, size_t> settingIndex;
    for (size_t s = 0; s < m.vSettings.size(); ++s) settingIndex.emplace(m.vSettings[s], s);
    // What each channel has left to run.
    std::vector<std::set<std::string>> wanted(m.vChannels.size());
    std::vector<size_t> todo;
    size_t points = 0;
    for (size_t c = 0; c < m.vChannels.size(); ++c) {
        size_t held = 0;
        for (size_t s = 0; s < m.vSettings.size(); ++s) {
            const size_t index = c * m.vSettings.size() + s;
            CampaignPoint done;
            std::string problem;
            if (!m.Holds(index)) continue;
            ++held;
            if (!(o.bResume && CampaignStore::ReadPoint(o.sOutDir, index, done, problem))) wanted[c].insert(m.vSettings[s]);
        }
        out << "channel " << c + 1 << "  : " << m.ChannelName(c);
        if (wanted[c].empty()) {
            out << (held == 0 ? " (none of its points is in this shard)\n" : " (its points are done already)\n");
            continue;
        }
        out << " (report and results in " << ChannelDir(o.sOutDir, c) << ")\n";
        todo.push_back(c);
        points += wanted[c].size();
    }

    // Channels run side by side, each with its share of the threads: a
    // channel's own preparation (its response, the pattern through it) is
    // serial, and runs while the other channels' settings run.
    // A channel's run keeps every setting's output until it has measured
    // them all, so channels side by side share a budget of 2 GiB of outputs.
    const unsigned jobs = o.nJobs != 0 ? o.nJobs : std::max(1u, std::thread::hardware_concurrency());
    size_t most = 0;
    for (size_t c : todo) most = std::max(most, wanted[c].size());
    const double perChannel = o.sInput.empty() ? double(most) * double(o.nBits) * o.iSamplesPerBit * 8.0 : 2e30;
    const double byMemory = std::max(1.0, std::floor(double(size_t{1} << 31) / std::max(perChannel, 1.0)));
    const size_t lanes = std::max<size_t>(1, std::min<size_t>({jobs, todo.size(), static_cast<size_t>(byMemory)}));
    ProgressBar progress(points, "campaign", o.bProgress);
    std::vector<std::exception_ptr> failures(m.vChannels.size());
    std::atomic<size_t> next{0};
    auto lane = [&] {
        for (size_t t; (t = next++) < todo.size();) {
            const size_t c = todo[t];
            HostOptions one = o;
            one.vChannelFiles.clear();
            one.sChannelFile = m.vChannels[c];
            if (!o.vPorts.empty()) one.sPorts = o.vPorts[c];
            one.sOutDir = ChannelDir(o.sOutDir, c);
            one.nJobs = static_cast<unsigned>(std::max<size_t>(1, jobs / lanes));
            one.bProgress = false;
            one.fWanted = [&wanted, c](const std::string& v) { return wanted[c].count(v) != 0; };
            one.fDone = [&, c](const PointResult& p) {
                const size_t setting = o.bSweep ? settingIndex.at(p.sSetting) : 0;
                CampaignStore::WritePoint(o.sOutDir, c * m.vSettings.size() + setting, p);
                ++progress.Counter();
            };
            std::ostringstream report;
            try {
                try {
                    Host::Run(one, report);
                } catch (const HostError& e) {
                    throw HostError(e.Code(), "channel " + m.ChannelName(c) +
                                                  ": " + e.what());
                }
                WriteText((std::filesystem::path(one.sOutDir) / "report.txt").string(), report.str());
                std::string summary, problem;
                const std::string path = (std::filesystem::path(one.sOutDir) / "summary.json").string();
                if (!ReadInputFile(path, summary, problem)) throw HostError(ExitCode::kOutputFailed, path + " " + problem);
                WriteText(CampaignStore::ChannelPath(o.sOutDir, c),
                          nlohmann::json::parse(summary).at("channel").dump(2) + "\n");
            } catch (...) {
                failures[c] = std::current_exception();
            }
        }
    };
    std::vector<std::thread> threads;
    for (size_t t = 1; t < lanes; ++t) threads.emplace_back(lane);
    lane();
    for (std::thread& t : threads) t.join();
    progress.Finish();
    for (const std::exception_ptr& f : failures)
        if (f) std::rethrow_exception(f);
    return CampaignReport::Finish(m, ReadHeld(m, o.sOutDir), o.sOutDir, out);
}

int Campaign::Merge(const std::string& outDir, const std::vector<std::string>& shardDirs, std::ostream& out) {
    if (shardDirs.empty()) throw HostError(ExitCode::kUsage, "merge needs the shards' folders");
    std::vector<CampaignManifest> shards(shardDirs.size());
    std::map<int, std::string> seen;
    for (size_t k = 0; k < shardDirs.size(); ++k) {
        const std::string& dir = shardDirs[k];
        if (!CampaignStore::ReadManifest(dir, shards[k]))
            throw HostError(ExitCode::kBadFile, dir + " holds no campaign results (no campaign.json)");
        const CampaignManifest &m = shards[k], &first = shards[0];
        if (m.sFingerprint != first.sFingerprint)
            throw HostError(ExitCode::kBadFile, dir + " is from another campaign than " + shardDirs[0] + " (fingerprint " +
                                                    m.sFingerprint + ", not " + first.sFingerprint +
                                                    "): the library, the .ami, the channels or the options differ");
        if (m.nShards != first.nShards)
            throw HostError(ExitCode::kBadFile, dir + " holds " + Shard(m) + " and " + shardDirs[0] + " " + Shard(first) +
                                                    ": they split the campaign differently");
        if (seen.count(m.iShard) != 0)
            throw HostError(ExitCode::kBadFile, Shard(m) + " is given twice: " + seen[m.iShard] + " and " + dir);
        seen[m.iShard] = dir;
        std::error_code ec;
        if (std::filesystem::equivalent(dir, outDir, ec))
            throw HostError(ExitCode::kUsage, "--out " + outDir + " is one of the shards' folders: merge into another");
    }
    CampaignManifest whole = shards[0];
    std::string missing;
    for (int k = 1; k <= whole.nShards; ++k)
        if (seen.count(k) == 0) missing += (missing.empty() ? "" : ", ") + std::to_string(k);
    if (!missing.empty())
        throw HostError(ExitCode::kBadFile, "shard " + missing + " of " + std::to_string(whole.nShards) + " is missing");

    std::vector<CampaignPoint> points(whole.Points());
    for (size_t k = 0; k < shards.size(); ++k)
        for (size_t i = 0; i < whole.Points(); ++i) {
            if (!shards[k].Holds(i)) continue;
            std::string problem;
            if (!CampaignStore::ReadPoint(shardDirs[k], i, points[i], problem))
                throw HostError(ExitCode::kBadFile,
                                shardDirs[k] + " (" + Shard(shards[k]) + ") " +
                                    (problem.empty() ? "has no result for " + whole.Describe(i) + ": finish it with --resume"
                                                     : CampaignStore::PointPath(shardDirs[k], i, "json") + " " + problem));
        }

    CreateOutDir(outDir);
    CreateOutDir((std::filesystem::path(outDir) / "points").string());
    CampaignStore::ClearPoints(outDir);
    for (size_t k = 0; k < shards.size(); ++k)
        for (size_t i = 0; i < whole.Points(); ++i) {
            if (!shards[k].Holds(i)) continue;
            for (const char* ext : {"png", "json"}) {
                if (std::string(ext) == "png" && !points[i].bHasEye) continue;
                std::string bytes, problem;
                const std::string from = CampaignStore::PointPath(shardDirs[k], i, ext);
                if (!ReadInputFile(from, bytes, problem)) throw HostError(ExitCode::kBadFile, from + " " + problem);
                WriteText(CampaignStore::PointPath(outDir, i, ext), bytes);
            }
        }
    for (size_t c = 0; c < whole.vChannels.size(); ++c)
        for (const std::string& dir : shardDirs) {
            std::string bytes, problem;
            if (!ReadInputFile(CampaignStore::ChannelPath(dir, c), bytes, problem)) continue;
            WriteText(CampaignStore::ChannelPath(outDir, c), bytes);
            break;
        }
    whole.iShard = whole.nShards = 1;
    CampaignStore::WriteManifest(outDir, whole);
    out << "merged     : " << shards.size() << " shards, " << whole.Points() << " points\n";
    return CampaignReport::Finish(whole, points, outDir, out);
}

}  // namespace amihost
