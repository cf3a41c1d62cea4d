// CampaignStore: what a campaign leaves in its folder so that it can be
// resumed, split into shards and merged. campaign.json says which campaign
// the folder belongs to (a fingerprint of the library, the .ami, the
// channels and every option that changes a result), its channels and
// settings, and which shard of it the folder holds; points/ holds one
// result per finished point, point-00007.json with its eye diagram
// point-00007.png, and what each channel's run said of its channel,
// channel-00002.json; each file written whole or not at all.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tools/host/Host.h"

namespace amihost {

struct CampaignManifest {
    std::string sFingerprint;
    std::string sLibrary, sAmiFile, sParameter;
    bool bSweep = false;
    std::vector<std::string> vChannels;   // as given; "" is the built-in channel
    std::vector<std::string> vSettings;   // the swept values in run order; one "" without a sweep
    int iShard = 1, nShards = 1;

    // Point index = channel x settings + setting.
    size_t Points() const { return vChannels.size() * vSettings.size(); }
    // The shards take the points in turn, so that each gets every channel.
    bool Holds(size_t index) const { return index % static_cast<size_t>(nShards) == static_cast<size_t>(iShard - 1); }
    // The channel as given, or "built-in".
    std::string ChannelName(size_t channel) const;
    // "channel 2 (b.s4p), EQ 7"
    std::string Describe(size_t index) const;
};

struct CampaignPoint {
    size_t nIndex = 0;
    PointResult result;   // fWriteEye is not kept
    bool bHasEye = false; // its eye diagram is beside it
};

class CampaignStore {
public:
    // 16 hexadecimal digits.
    static std::string Fingerprint(const HostOptions& o);

    static void WriteManifest(const std::string& dir, const CampaignManifest& m);
    // False when the folder has no campaign.json; throws HostError(kBadFile)
    // when it has one that cannot be read.
    static bool ReadManifest(const std::string& dir, CampaignManifest& m);

    static std::string PointPath(const std::string& dir, size_t index, const char* extension);
    // The eye diagram first, then the result, which marks the point done.
    static void WritePoint(const std::string& dir, size_t index, const PointResult& p);
    // False with `problem` empty when the point has no result, or with the
    // reason when its file cannot be read.
    static bool ReadPoint(const std::string& dir, size_t index, CampaignPoint& p, std::string& problem);
    // What a channel's run said of the channel: summary.json's "channel"
    // (description, loss at Nyquist, delay, warnings), kept beside the points.
    static std::string ChannelPath(const std::string& dir, size_t channel);
    // Removes the results of an earlier campaign in the folder.
    static void ClearPoints(const std::string& dir);
};

}  // namespace amihost
