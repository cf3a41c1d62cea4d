// Campaign: one receiver against several channels, every channel with every
// value of the swept parameter. Each channel runs as a run of its own, in its
// own folder under --out (its full report in report.txt there); the campaign
// then reads their summaries back and reports one table with a channel
// column, the best setting of each channel, and the setting that is best
// over all of them: the one whose worst eye height over the channels is the
// largest.
#pragma once

#include <ostream>

#include "tools/host/Host.h"

namespace amihost {

class Campaign {
public:
    // Returns the first nonzero exit code of the channels' runs, else 0.
    static int Run(const HostOptions& options, std::ostream& out);
};

}  // namespace amihost
