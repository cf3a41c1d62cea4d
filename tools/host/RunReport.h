// RunReport: what amihost reports of its runs: one setting's outcome, the
// lines and JSON that describe it, the table of a sweep, and the files of a
// run (eye diagrams, waveform, summary.json).
#pragma once

#include <cstddef>
#include <exception>
#include <nlohmann/json.hpp>
#include <ostream>
#include <string>
#include <vector>

#include "tools/eye/EyeMetrics.h"
#include "tools/eye/StatEye.h"
#include "tools/host/Host.h"
#include "tools/host/ModelRun.h"
#include "tools/host/Stimulus.h"
#include "tools/ibis/IbsFile.h"
#include "tools/ibis/RateMatch.h"

namespace amihost {

// One setting's run and its eye.
struct Outcome {
    std::string sLabel;             // "EQ 7", or the root name for a single run
    std::string sValue;             // the swept value ("" for a single run)
    std::string sParameters;
    RunResult run;
    size_t nNonFinite = 0;          // 1 + index of the first NaN or infinite output sample; 0: none
    EyeResult eye;                  // measured when the run succeeded
    std::exception_ptr failure;     // what the measurement threw, if anything
};

// The model ran to the end and returned only finite samples: its eye is measured.
bool Measured(const Outcome& o);
// "sample 12 is nan, not finite"
std::string NonFinite(const Outcome& o);
// "AMI_Init returned 1, message: ..."
std::string InitLine(const RunResult& r);
std::string EyeLine(const EyeResult& e, double bitTime);
// The title of its eye diagram: "EQ 7: H 0.184 V, W 0.62 UI".
std::string Title(const Outcome& o);
nlohmann::ordered_json RateJson(const RateMatchResult& rate);
void PrintRate(const RateMatchResult& rate, std::ostream& out);
// Index of the best outcome: the largest eye height, then the widest eye,
// then the first.
size_t Best(const std::vector<Outcome>& outcomes);
// Replaces the file as a whole: a stopped run leaves the old text or the new.
void WriteText(const std::string& path, const std::string& text);
// The JSON indented by two, text that is not UTF-8 replaced, as WriteText.
void WriteJson(const std::string& path, const nlohmann::ordered_json& j);
// Creates the output folder and checks that it can be written into.
void CreateOutDir(const std::string& dir);

// Everything a finished run reports on.
struct RunRecord {
    const HostOptions& o;
    const Stimulus& stim;
    const std::vector<Outcome>& outcomes;
    size_t best;                        // outcomes.size() when none was measured
    size_t ignoreBits;
    std::string sRoot;                  // the .ami file's root name
    std::string sBaseParameters;        // the parameter string before the sweep
    const IbsReceiver& rx;
    const RateMatchResult& rate;
    const EyeResult& inputEye;
    const StatEyeResult* pStatEye;      // null without --stat-eye
    const StatEyeSettings* pStatSettings;
};

// The single run's calls and eye, or the sweep's table and best setting.
void PrintRuns(const RunRecord& r, int code, std::ostream& out);
// The eye diagrams, waveform, statistical eye and summary.json in --out;
// ends with the "wrote" line.
void WriteResults(const RunRecord& r, std::ostream& out);

}  // namespace amihost
