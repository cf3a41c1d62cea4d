// CampaignReport: a campaign's results as a whole: the table with a channel
// column, the best setting of each channel, the setting that is best over
// all channels (the one whose worst eye height is the largest),
// summary.json and report.html. Built from the points' results alone, so
// that a campaign run whole and the same campaign merged from its shards
// report the same.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "tools/campaign/CampaignStore.h"

namespace amihost {

class CampaignReport {
public:
    // points: the results at hand, in index order. A shard, or a campaign
    // with points missing, gets its rows only. Returns the exit code of the
    // first point that failed, else 0.
    static int Finish(const CampaignManifest& m, const std::vector<CampaignPoint>& points, const std::string& outDir,
                      std::ostream& out);
};

}  // namespace amihost
