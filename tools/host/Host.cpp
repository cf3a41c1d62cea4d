// Host: amihost's run from parsed options to written results.
#include "tools/host/Host.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <mutex>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "tools/base/HostError.h"
#include "tools/base/HtmlPage.h"
#include "tools/base/ProgressBar.h"
#include "tools/eye/Datasheet.h"
#include "tools/eye/StatEye.h"
#include "tools/eye/StatEyeReport.h"
#include "tools/eye/EyePlot.h"
#include "tools/host/RunReport.h"
#include "tools/host/Stimulus.h"
#include "tools/ibis/IbsFile.h"
#include "tools/ibis/ParameterString.h"
#include "tools/ibis/RateMatch.h"
#include "tools/signal/Channel.h"
#include "tools/signal/PulseResponse.h"

namespace amihost {

namespace {

// Samples of the step-response runs, and where the step starts: long enough
// for the slowest equalizer pole to settle.
const size_t kStepLength = 65536;
const size_t kStepLead = 1024;

int RunDatasheet(const HostOptions& o, const AmiLibrary& lib, ParameterString base, std::ostream& out,
                 const AmiFile& ami) {
    CheckNumbers(o);
    const double dt = 1.0 / (o.dBitRate * o.iSamplesPerBit);
    const RateMatchResult rate = RateMatch::Apply(base, ami, o.vSets, dt, o.iSamplesPerBit);
    out << "library    : " << o.sLibrary << "\n";
    out << "ami file   : " << o.sAmiFile << " (root " << ami.RootName() << ")\n";
    out << "datasheet  : unit step through AMI_GetWave, " << kStepLength << " samples of " << Fmt("%g", dt)
        << " s, per " << o.sSweepParam << " setting\n";
    PrintRate(rate, out);
    const std::vector<std::string> values = base.SweepValues(o.sSweepParam);
    std::vector<DatasheetRow> rows;
    ProgressBar progress(values.size(), "datasheet", o.bProgress);
    for (const std::string& v : values) {
        ParameterString p = base;
        p.Set(o.sSweepParam, v);
        RunSettings settings;
        settings.sParameters = p.Text();
        settings.sLabel = o.sSweepParam + " " + v;
        settings.dSampleInterval = dt;
        settings.dBitTime = dt * o.iSamplesPerBit;
        settings.nBlock = std::min(o.nBlock, kStepLength);
        const std::vector<double> step = ModelRun::Step(lib, settings, kStepLead, kStepLength);
        rows.push_back(Datasheet::Measure(step, kStepLead, dt));
        rows.back().sValue = v;
        ++progress.Counter();
    }
    progress.Finish();
    out << Datasheet::Table(o.sSweepParam, rows);

    CreateOutDir(o.sOutDir);
    const std::string png = (std::filesystem::path(o.sOutDir) / "datasheet.png").string();
    const std::string json = (std::filesystem::path(o.sOutDir) / "summary.json").string();
    const std::string html = (std::filesystem::path(o.sOutDir) / "report.html").string();
    Datasheet::Plot(o.sSweepParam, rows, std::min(0.5 / dt, 25e9), png);
    nlohmann::ordered_json doc = {{"library", o.sLibrary},       {"ami_file", o.sAmiFile},
                                  {"root", ami.RootName()},      {"sample_interval_s", dt},
                                  {"parameter", o.sSweepParam},  {"rate_match", RateJson(rate)},
                                  {"datasheet", Datasheet::Json(rows)}, {"files", {png, json, html}}};
    WriteText(json, doc.dump(2) + "\n");
    HtmlPage page("amihost datasheet: " + ami.RootName());
    page.Settings({{"library", o.sLibrary}, {"ami file", o.sAmiFile}, {"sample interval", Fmt("%g", dt) + " s"}});
    page.Preformatted(Datasheet::Table(o.sSweepParam, rows));
    page.Image("datasheet", png);
    WriteText(html, page.Text());
    out << "wrote      : " << png << " " << json << " " << html << "\n";
    return 0;
}


}  // namespace

std::string Host::ChannelSummary(double bitRate) {
    const Channel channel(Channel::DefaultCorners(), 1e-12);
    return Channel::Describe(Channel::DefaultCorners()) + ", unit gain at DC; loss " +
           Fmt("%.1f", channel.LossDb(bitRate / 2.0)) + " dB at Nyquist (" + Fmt("%g", bitRate / 2e9) + " GHz)";
}


int Host::Run(HostOptions o, std::ostream& out) {
    // Before any work: a run of minutes must not end in "cannot create".
    CreateOutDir(o.sOutDir);
    IbsReceiver rx;
    if (!o.sIbsFile.empty()) {
        rx = IbsFile::Find(o.sIbsFile, o.sComponent, o.sModelName);
        if (o.sLibrary.empty()) o.sLibrary = rx.sLibrary;
        if (o.sAmiFile.empty()) o.sAmiFile = rx.sAmiFile;
        out << "ibis file  : " << o.sIbsFile << ": component " << rx.sComponent << ", model " << rx.sModel
            << ", executable for " << rx.sPlatform << "; termination "
            << (rx.dTerminationOhms > 0.0 ? Fmt("%g", rx.dTerminationOhms) + " ohm per leg (" + rx.sTermination + ")"
                                          : std::string("not given (matched)"))
            << "\n";
    }
    const AmiLibrary lib(o.sLibrary);
    const AmiFile ami = AmiFile::Load(o.sAmiFile);
    ParameterString base(ami);
    for (const std::string& s : o.vSets) base.SetAssignment(s);

    if (o.nBlock < 1) throw HostError(ExitCode::kBadParameter, "--block must be at least 1");
    if (o.bDatasheet) return RunDatasheet(o, lib, base, out, ami);
    if (o.bStatEye && !o.sInput.empty())
        throw HostError(ExitCode::kBadParameter, "--stat-eye needs the built-in pattern: the channel of --input is unknown");
    CheckNumbers(o);
    long ignore = o.iIgnoreBits;
    if (ignore < 0) {
        ignore = 100;
        if (const AmiParameter* p = ami.FindReserved("Ignore_Bits"))
            if (!p->sDefault.empty()) ignore = std::max(0L, std::strtol(p->sDefault.c_str(), nullptr, 10));
    }
    const size_t ignoreBits = static_cast<size_t>(ignore);
    if (o.sInput.empty() && o.nBits < ignoreBits + 2 * kMaxLatencyUI)
        throw HostError(ExitCode::kBadParameter, "--bits must be at least " + std::to_string(ignoreBits + 2 * kMaxLatencyUI) +
                                                     " (the ignored bits plus " + std::to_string(2 * kMaxLatencyUI) +
                                                     " for the latency search)");

    size_t runs = 0;
    if (o.bSweep)
        for (const std::string& v : base.SweepValues(o.sSweepParam)) runs += !o.fWanted || o.fWanted(v) ? 1 : 0;
    runs = std::max<size_t>(1, runs);
    const Stimulus stim = MakeStimulus(o, rx.dTerminationOhms, runs);
    const size_t delayBits = static_cast<size_t>(stim.iChannelDelay / stim.iSamplesPerBit);
    if (o.sInput.empty() && delayBits > 0 && o.nBits < ignoreBits + delayBits + 2 * kMaxLatencyUI)
        throw HostError(ExitCode::kBadParameter,
                        "--bits must be at least " + std::to_string(ignoreBits + delayBits + 2 * kMaxLatencyUI) +
                            " (the ignored bits, the channel's delay of " + std::to_string(delayBits) + " UI and " +
                            std::to_string(2 * kMaxLatencyUI) + " for the latency search)");
    const RateMatchResult rate = RateMatch::Apply(base, ami, o.vSets, stim.dSampleInterval, stim.iSamplesPerBit);

    // One parameter string per run: the swept values, or just the base.
    std::vector<Outcome> outcomes;
    if (o.bSweep) {
        for (const std::string& v : base.SweepValues(o.sSweepParam)) {
            if (o.fWanted && !o.fWanted(v)) continue;
            ParameterString p = base;
            p.Set(o.sSweepParam, v);
            Outcome oc;
            oc.sValue = v;
            oc.sLabel = o.sSweepParam + " " + v;
            oc.sParameters = p.Text();
            outcomes.push_back(std::move(oc));
        }
    } else {
        Outcome oc;
        oc.sLabel = ami.RootName();
        try {
            oc.sLabel = o.sSweepParam + " " + base.Get(o.sSweepParam);
        } catch (const HostError&) {
            // A model without that parameter keeps its root name as the label.
        }
        oc.sParameters = base.Text();
        outcomes.push_back(std::move(oc));
    }

    out << "library    : " << o.sLibrary << "\n";
    out << "ami file   : " << o.sAmiFile << " (root " << ami.RootName() << ")\n";
    out << "stimulus   : " << stim.sDescription << "\n";
    if (stim.bChannel) out << "channel    : " << stim.sChannel << "\n";
    for (const std::string& w : stim.vChannelWarnings) out << w << "\n";
    out << "AMI_Init   : sample interval " << Fmt("%g", stim.dSampleInterval) << " s, bit time "
        << Fmt("%g", stim.dBitTime) << " s; AMI_GetWave blocks of " << o.nBlock << " samples\n";
    PrintRate(rate, out);
    EyeResult inputEye;
    if (!stim.vBits.empty()) {
        inputEye = MeasureEye(stim, stim.vWave, ignoreBits);
        out << "model input: " << EyeLine(inputEye, stim.dBitTime) << "\n";
    }

    RunSettings settings;
    settings.dSampleInterval = stim.dSampleInterval;
    settings.dBitTime = stim.dBitTime;
    settings.nBlock = std::min(o.nBlock, stim.vWave.size());  // no clock-time room beyond the waveform
    settings.vImpulse = stim.vImpulse;

    ProgressBar progress(stim.vWave.size() * outcomes.size(), o.bSweep ? "sweeping " + o.sSweepParam : "running",
                         o.bProgress);
    {
        // A campaign keeps each run's result as soon as it has ended.
        auto Report = [&](Outcome& oc) {
            if (!o.fDone || oc.failure) return;
            PointResult p;
            p.sSetting = oc.sValue;
            p.iInitResult = oc.run.iInitResult;
            p.iGetWaveResult = oc.run.iGetWaveResult;
            if (oc.run.bHasMessage) p.sMessage = oc.run.sMessage;
            p.nNonFinite = oc.nNonFinite;
            p.bMeasured = Measured(oc);
            p.bOpen = oc.eye.bOpen;
            p.dHeight = oc.eye.dHeight;
            p.dWidthUI = oc.eye.dWidthUI;
            if (p.bMeasured)
                p.fWriteEye = [&](const std::string& path) {
                    EyePlot plot;
                    plot.Render(oc.run.vOutput, stim.iSamplesPerBit, oc.eye, ignoreBits, Title(oc));
                    plot.WritePng(path);
                };
            try {
                o.fDone(p);
            } catch (...) {
                oc.failure = std::current_exception();
            }
        };
        // Each run makes its own instance and measures its own eye; threads
        // take the next run until none is left.
        size_t next = 0;
        std::mutex lock;
        auto worker = [&] {
            for (;;) {
                size_t i;
                {
                    std::lock_guard<std::mutex> guard(lock);
                    if (next == outcomes.size()) return;
                    i = next++;
                }
                RunSettings mine = settings;
                mine.sParameters = outcomes[i].sParameters;
                mine.sLabel = outcomes[i].sLabel;
                Outcome& oc = outcomes[i];
                oc.run = ModelRun::Run(lib, mine, stim.vWave, &progress.Counter());
                if (oc.run.iInitResult == 0 || oc.run.iGetWaveResult == 0) {
                    Report(oc);
                    continue;
                }
                // A NaN or infinite sample would read as an open eye.
                const auto bad = std::find_if(oc.run.vOutput.begin(), oc.run.vOutput.end(),
                                              [](double v) { return !std::isfinite(v); });
                oc.nNonFinite = bad == oc.run.vOutput.end() ? 0 : static_cast<size_t>(bad - oc.run.vOutput.begin()) + 1;
                if (oc.nNonFinite != 0) {
                    Report(oc);
                    continue;
                }
                try {
                    oc.eye = MeasureEye(stim, oc.run.vOutput, ignoreBits);
                } catch (...) {
                    oc.failure = std::current_exception();
                }
                Report(oc);
            }
        };
        unsigned jobs = o.nJobs != 0 ? o.nJobs : std::max(1u, std::thread::hardware_concurrency());
        jobs = static_cast<unsigned>(std::min<size_t>(jobs, outcomes.size()));
        std::vector<std::thread> threads;
        for (unsigned t = 1; t < jobs; ++t) threads.emplace_back(worker);
        worker();
        for (std::thread& t : threads) t.join();
    }
    progress.Finish();

    int code = 0;
    for (const Outcome& oc : outcomes) {
        if (oc.failure) std::rethrow_exception(oc.failure);
        if (code == 0 && oc.run.iInitResult == 0) code = static_cast<int>(ExitCode::kInitFailed);
        if (code == 0 && oc.run.iGetWaveResult == 0) code = static_cast<int>(ExitCode::kGetWaveFailed);
        if (code == 0 && oc.nNonFinite != 0) code = static_cast<int>(ExitCode::kNonFiniteOutput);
    }


    const size_t best = Best(outcomes);
    StatEyeSettings statSettings;
    StatEyeResult statEye;
    const bool statEyeDone = o.bStatEye && best < outcomes.size();
    const RunRecord record{o,    stim,     outcomes, best, ignoreBits, ami.RootName(), base.Text(), rx, rate, inputEye,
                           statEyeDone ? &statEye : nullptr, statEyeDone ? &statSettings : nullptr};
    PrintRuns(record, code, out);
    if (statEyeDone) {
        // The model's pulse response through AMI_GetWave (step, differentiated)
        // combined with the channel's response to one UI.
        const Outcome& oc = outcomes[best];
        RunSettings mine = settings;
        mine.sParameters = oc.sParameters;
        const size_t length = stim.vPulse.size();
        const std::vector<double> step = ModelRun::Step(lib, mine, kStepLead, kStepLead + length);
        const std::vector<double> pulse =
            PulseResponse::Combine(PulseResponse::Differentiate(step, kStepLead), stim.vPulse, length);
        statSettings.iSamplesPerBit = stim.iSamplesPerBit;
        statSettings.dSampleInterval = stim.dSampleInterval;
        statSettings.dAmplitude = o.dAmplitude;
        statSettings.dNoiseRms = o.dNoiseRms;
        statSettings.dRjRms = o.dRjRms;
        try {
            statEye = StatEye::Compute(pulse, statSettings);
        } catch (const std::invalid_argument& e) {
            throw HostError(ExitCode::kBadParameter, std::string(e.what()) + " (" + oc.sLabel + ")");
        }
        out << "stat eye   : " << oc.sLabel << ", main cursor " << Fmt("%.4f", statEye.dMainCursor) << " V, noise "
            << Fmt("%g", o.dNoiseRms) << " V rms, RJ " << Fmt("%g", o.dRjRms) << " s rms\n";
        std::istringstream lines(StatEyeReport::Lines(statEye));
        for (std::string line; std::getline(lines, line);) out << "             " << line << "\n";
    }
    WriteResults(record, out);
    return code;
}

}  // namespace amihost
