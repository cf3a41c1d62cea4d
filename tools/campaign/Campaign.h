// Campaign: one receiver against several channels, every channel with every
// value of the swept parameter; each pair is a point. A campaign can be
// split into shards (--shard K/N: the K-th of N disjoint parts of the
// points) and resumed (--resume: the points already done in --out are kept).
// Each channel runs as a run of its own in its own folder under --out (its
// full report in report.txt there); each point's result is kept the moment
// it ends, and the campaign reports from those results alone.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "tools/host/Host.h"

namespace amihost {

class Campaign {
public:
    // More than one channel, a shard or a resumed run.
    static bool Wanted(const HostOptions& options);
    // Returns the exit code of the first point that failed, else 0.
    static int Run(const HostOptions& options, std::ostream& out);
    // `amihost merge`: the shards' results as the whole campaign's.
    static int Merge(const std::string& outDir, const std::vector<std::string>& shardDirs, std::ostream& out);
};

}  // namespace amihost
