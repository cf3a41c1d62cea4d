// RatioReporter: prints as the console reporter does and keeps, per
// benchmark, the fastest ns per sample of its runs (items_per_second
// inverted). Ratios are then taken within the one run; on a shared machine
// the fastest repetition is the figure least disturbed by other work.
#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            const auto items = run.counters.find("items_per_second");
            if (run.run_type != Run::RT_Iteration || items == run.counters.end() || !(items->second.value > 0))
                continue;
            const std::string name = run.run_name.str();
            const double ns = 1e9 / items->second.value;
            if (nsPerSample.count(name) == 0 || ns < nsPerSample[name]) nsPerSample[name] = ns;
        }
    }
    std::map<std::string, double> nsPerSample;
};
