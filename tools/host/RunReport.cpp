// RunReport: the lines, the table, the files and the summary of a run.
#include "tools/host/RunReport.h"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <unistd.h>

#include "tools/base/DeferredStop.h"
#include "tools/base/HostError.h"
#include "tools/base/HtmlPage.h"
#include "tools/eye/EyePlot.h"
#include "tools/eye/StatEyeReport.h"
#include "tools/signal/WaveformFile.h"
#include "tools/signal/Channel.h"

namespace amihost {

bool Measured(const Outcome& o) {
    return o.run.iInitResult != 0 && o.run.iGetWaveResult != 0 && o.nNonFinite == 0;
}

std::string NonFinite(const Outcome& o) {
    return "sample " + std::to_string(o.nNonFinite) + " is " + Fmt("%g", o.run.vOutput[o.nNonFinite - 1]) +
           ", not finite";
}

std::string InitLine(const RunResult& r) {
    std::string line = "AMI_Init returned " + std::to_string(r.iInitResult) + ", message: ";
    line += r.bHasMessage ? "\"" + r.sMessage + "\"" : std::string("(none)");
    return line;
}

std::string EyeLine(const EyeResult& e, double bitTime) {
    std::string line = "eye height " + Fmt("%.4f", e.dHeight) + " V, width " + Fmt("%.3f", e.dWidthUI) + " UI (" +
                       Fmt("%.1f", e.dWidthUI * bitTime * 1e12) + " ps)";
    line += e.bOpen ? ", sampled at phase " + Fmt("%.3f", e.dPhaseUI) + " UI" : ", closed";
    return line;
}

nlohmann::ordered_json EyeJson(const EyeResult& e, double bitTime) {
    return {{"open", e.bOpen},
            {"height_v", e.dHeight},
            {"width_ui", e.dWidthUI},
            {"width_s", e.dWidthUI * bitTime},
            {"sampling_delay_samples", e.iDelay},
            {"phase_ui", e.dPhaseUI},
            {"threshold_v", e.dThreshold},
            {"level_one_v", e.dLevel1},
            {"level_zero_v", e.dLevel0},
            {"bits", e.nBits}};
}

nlohmann::ordered_json RunJson(const Outcome& o, double bitTime) {
    const nlohmann::ordered_json null;
    nlohmann::ordered_json j;
    if (!o.sValue.empty()) j["setting"] = o.sValue;
    j["parameters"] = o.sParameters;
    j["ami_init"] = {{"result", o.run.iInitResult},
                     {"message", o.run.bHasMessage ? nlohmann::ordered_json(o.run.sMessage) : null},
                     {"parameters_out", o.run.bHasParametersOut ? nlohmann::ordered_json(o.run.sParametersOut) : null},
                     {"impulse_changed", o.run.bImpulseChanged}};
    j["ami_getwave"] = {
        {"result", o.run.iGetWaveResult}, {"calls", o.run.nGetWaveCalls}, {"clock_times", o.run.nClockTimes}};
    j["ami_close"] = {{"result", o.run.iCloseResult}};
    j["seconds"] = o.run.dSeconds;
    if (o.nNonFinite != 0) j["first_non_finite_sample"] = o.nNonFinite;
    j["eye"] = Measured(o) ? EyeJson(o.eye, bitTime) : null;
    return j;
}

void WriteText(const std::string& path, const std::string& text) {
    // Written aside and renamed, so that a stopped run leaves the old file
    // or the new one, never half of one (a stop waits for the rename).
    const WholeFileWrite whole;
    const std::string part = path + ".part";
    {
        std::ofstream f(part, std::ios::binary);
        f << text;
        f.flush();
        if (!f) throw HostError(ExitCode::kOutputFailed, "cannot write " + path);
    }
    std::error_code ec;
    std::filesystem::rename(part, path, ec);
    if (ec) throw HostError(ExitCode::kOutputFailed, "cannot write " + path + ": " + ec.message());
}

void WriteJson(const std::string& path, const nlohmann::ordered_json& j) {
    WriteText(path, j.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n");
}

std::string Title(const Outcome& o) {
    std::string t = o.sLabel + ": ";
    if (o.eye.bOpen)
        t += "H " + Fmt("%.3f", o.eye.dHeight) + " V, W " + Fmt("%.2f", o.eye.dWidthUI) + " UI";
    else
        t += "CLOSED (H " + Fmt("%.3f", o.eye.dHeight) + " V)";
    return t;
}

size_t Best(const std::vector<Outcome>& outcomes) {
    size_t best = outcomes.size();
    for (size_t i = 0; i < outcomes.size(); ++i) {
        const Outcome& o = outcomes[i];
        if (!Measured(o)) continue;
        if (best == outcomes.size() || o.eye.dHeight > outcomes[best].eye.dHeight ||
            (o.eye.dHeight == outcomes[best].eye.dHeight && o.eye.dWidthUI > outcomes[best].eye.dWidthUI))
            best = i;
    }
    return best;
}

std::string FileLabel(const std::string& param, const std::string& value) {
    std::string s = param + value;
    for (char& c : s)
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '-' && c != '.') c = '_';
    return s;
}

nlohmann::ordered_json RateJson(const RateMatchResult& rate) {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const RateSetting& r : rate.vSettings)
        list.push_back({{"parameter", r.sName},
                        {"host_value", r.sHostValue},
                        {"used_value", r.sUsedValue},
                        {"set_by_user", r.bOverridden},
                        {"agrees", r.bAgrees}});
    return {{"settings", list}, {"warnings", rate.vWarnings}};
}

void PrintRate(const RateMatchResult& rate, std::ostream& out) {
    for (const RateSetting& r : rate.vSettings)
        if (r.bAgrees)
            out << "timing     : " << r.sName << " " << r.sUsedValue << (r.bOverridden ? " (set by you)" : " (set by the host)")
                << "\n";
    for (const std::string& w : rate.vWarnings) out << w << "\n";
}

void CreateOutDir(const std::string& dir) {
    std::error_code ec;
    std::filesystem::create_directories(dir, ec);
    if (ec) throw HostError(ExitCode::kOutputFailed, "cannot create output folder " + dir + ": " + ec.message());
    if (access(dir.c_str(), W_OK | X_OK) != 0)
        throw HostError(ExitCode::kOutputFailed, "cannot write into output folder " + dir + ": " + std::strerror(errno));
}


void PrintRuns(const RunRecord& r, int code, std::ostream& out) {
    const HostOptions& o = r.o;
    const Stimulus& stim = r.stim;
    const std::vector<Outcome>& outcomes = r.outcomes;
    const size_t best = r.best;
    if (!o.bSweep) {
        const Outcome& oc = outcomes[0];
        out << "parameters : " << oc.sParameters << "\n";
        out << InitLine(oc.run) << "\n";
        if (oc.run.iInitResult != 0)
            out << "AMI_GetWave returned " << oc.run.iGetWaveResult << " (" << oc.run.nGetWaveCalls << " calls)\n";
        out << "AMI_Close returned " << oc.run.iCloseResult << "\n";
        if (code == 0) out << "model output: " << EyeLine(oc.eye, stim.dBitTime) << "\n";
        if (oc.nNonFinite != 0) out << "model output: " << NonFinite(oc) << "\n";
    } else {
        out << "parameters : " << r.sBaseParameters << ", sweeping " << o.sSweepParam << "\n";
        char row[160];
        std::snprintf(row, sizeof row, "%8s  %8s  %14s  %14s\n", o.sSweepParam.c_str(), "AMI_Init", "eye height (V)",
                      "eye width (UI)");
        out << row;
        for (size_t i = 0; i < outcomes.size(); ++i) {
            const Outcome& oc = outcomes[i];
            if (!Measured(oc)) {
                std::snprintf(row, sizeof row, "%8s  %8ld  %14s  %14s  %s\n", oc.sValue.c_str(), oc.run.iInitResult,
                              "-", "-", oc.run.iInitResult == 0 ? "AMI_Init failed"
                                        : oc.run.iGetWaveResult == 0 ? "AMI_GetWave failed" : NonFinite(oc).c_str());
            } else {
                const char* note = i == best ? "  <- best" : (oc.eye.bOpen ? "" : "  closed");
                std::snprintf(row, sizeof row, "%8s  %8ld  %14.4f  %14.3f%s\n", oc.sValue.c_str(), oc.run.iInitResult,
                              oc.eye.dHeight, oc.eye.dWidthUI, note);
            }
            out << row;
        }
        for (const Outcome& oc : outcomes)
            if (oc.run.bHasMessage || oc.run.iInitResult == 0)
                out << o.sSweepParam << " " << oc.sValue << ": " << InitLine(oc.run) << "\n";
        if (best < outcomes.size())
            out << "best       : " << outcomes[best].sLabel << ", " << EyeLine(outcomes[best].eye, stim.dBitTime) << "\n";
    }
}

void WriteResults(const RunRecord& r, std::ostream& out) {
    const HostOptions& o = r.o;
    const Stimulus& stim = r.stim;
    const std::vector<Outcome>& outcomes = r.outcomes;
    const size_t best = r.best, ignoreBits = r.ignoreBits;
    const bool statEyeDone = r.pStatEye != nullptr;

    // Files.
    CreateOutDir(o.sOutDir);
    std::vector<std::string> written;
    auto path = [&](const std::string& name) { return (std::filesystem::path(o.sOutDir) / name).string(); };
    auto plot = [&](const Outcome& oc, const std::string& name) {
        EyePlot p;
        p.Render(oc.run.vOutput, stim.iSamplesPerBit, oc.eye, ignoreBits, Title(oc));
        p.WritePng(path(name));
        written.push_back(path(name));
    };
    if (best < outcomes.size()) {
        if (!o.bSweep) {
            WaveformFile::Write(path("waveform.csv"), stim.dSampleInterval, stim.vWave, outcomes[0].run.vOutput);
            written.push_back(path("waveform.csv"));
            plot(outcomes[0], "eye.png");
        } else {
            const Outcome& first = outcomes[0];
            const Outcome& top = outcomes[best];
            if (Measured(first))
                plot(first, "eye_" + FileLabel(o.sSweepParam, first.sValue) + ".png");
            if (best != 0) plot(top, "eye_" + FileLabel(o.sSweepParam, top.sValue) + ".png");
            const std::string csv = "waveform_" + FileLabel(o.sSweepParam, top.sValue) + ".csv";
            WaveformFile::Write(path(csv), stim.dSampleInterval, stim.vWave, top.run.vOutput);
            written.push_back(path(csv));
        }
    }

    if (statEyeDone) {
        StatEyeReport::WritePng(*r.pStatEye, "STATISTICAL EYE, " + outcomes[best].sLabel, path("stat_eye.png"));
        written.push_back(path("stat_eye.png"));
    }

    // NaN and infinities are written as null.
    nlohmann::ordered_json j, null;
    j["library"] = o.sLibrary;
    j["ami_file"] = o.sAmiFile;
    j["root"] = r.sRoot;
    nlohmann::ordered_json st = {{"description", stim.sDescription}};
    if (stim.vBits.empty()) st["input_file"] = o.sInput; else st["prbs"] = o.iPrbs;
    st["samples"] = stim.vWave.size();
    st["samples_per_bit"] = stim.iSamplesPerBit;
    st["sample_interval_s"] = stim.dSampleInterval;
    st["bit_time_s"] = stim.dBitTime;
    j["stimulus"] = st;
    nlohmann::ordered_json ch;
    if (stim.bChannel && !o.sChannelFile.empty()) {
        ch = {{"model", stim.sChannel},         {"touchstone", o.sChannelFile},
              {"ports", o.sPorts},              {"nyquist_hz", 0.5 / stim.dBitTime},
              {"loss_at_nyquist_db", stim.dLossAtNyquist}};
    } else if (stim.bChannel) {
        const Channel channel(Channel::DefaultCorners(), stim.dSampleInterval);
        ch = {{"model", Channel::Describe(channel.Corners())},
              {"corners_hz", channel.Corners()},
              {"nyquist_hz", 0.5 / stim.dBitTime},
              {"loss_at_nyquist_db", channel.LossDb(0.5 / stim.dBitTime)}};
    }
    if (stim.bChannel) ch["delay_s"] = stim.iChannelDelay * stim.dSampleInterval;  // where the eye search starts
    if (!stim.vChannelWarnings.empty()) ch["warnings"] = stim.vChannelWarnings;
    j["channel"] = ch;
    j["input_eye"] = stim.vBits.empty() ? null : EyeJson(r.inputEye, stim.dBitTime);
    j["block"] = o.nBlock;
    j["ignore_bits"] = ignoreBits;
    if (o.bSweep) j["sweep"] = o.sSweepParam;
    nlohmann::ordered_json runList = nlohmann::ordered_json::array();
    for (const Outcome& oc : outcomes) runList.push_back(RunJson(oc, stim.dBitTime));
    j["runs"] = runList;
    j["best"] = best < outcomes.size() ? nlohmann::ordered_json(best) : null;
    written.push_back(path("summary.json"));
    written.push_back(path("report.html"));
    j["files"] = written;
    j["rate_match"] = RateJson(r.rate);
    if (statEyeDone) j["stat_eye"] = StatEyeReport::Json(*r.pStatEye, *r.pStatSettings);
    if (!o.sIbsFile.empty())
        j["ibis"] = {{"file", o.sIbsFile},          {"component", r.rx.sComponent},
                     {"model", r.rx.sModel},          {"platform", r.rx.sPlatform},
                     {"termination_ohms", r.rx.dTerminationOhms}, {"termination_from", r.rx.sTermination}};
    WriteJson(path("summary.json"), j);

    HtmlPage page("amihost: " + r.sRoot);
    page.Settings({{"library", o.sLibrary},
                   {"ami file", o.sAmiFile},
                   {"stimulus", stim.sDescription},
                   {"channel", stim.bChannel ? stim.sChannel : std::string("none")},
                   {"parameters", r.sBaseParameters},
                   {"ignored bits", std::to_string(ignoreBits)}});
    std::vector<std::vector<std::string>> rows;
    for (const Outcome& oc : outcomes) {
        const bool m = Measured(oc);
        rows.push_back({oc.sValue.empty() ? oc.sLabel : oc.sValue, std::to_string(oc.run.iInitResult),
                        m ? Fmt("%.4f", oc.eye.dHeight) : "-", m ? Fmt("%.3f", oc.eye.dWidthUI) : "-",
                        !m ? (oc.run.iInitResult == 0 ? "AMI_Init failed"
                              : oc.run.iGetWaveResult == 0 ? "AMI_GetWave failed" : NonFinite(oc))
                           : (oc.eye.bOpen ? "" : "closed")});
    }
    page.Table("results", {o.bSweep ? o.sSweepParam : "run", "AMI_Init", "eye height (V)", "eye width (UI)", "note"},
               rows);
    if (best < outcomes.size())
        page.Paragraph("best: " + outcomes[best].sLabel + ", " + EyeLine(outcomes[best].eye, stim.dBitTime));
    for (const std::string& w : written)
        if (w.size() > 4 && w.compare(w.size() - 4, 4, ".png") == 0)
            page.Image(std::filesystem::path(w).filename().string(), w);
    WriteText(path("report.html"), page.Text());

    out << "wrote      :";
    for (const std::string& w : written) out << " " << w;
    out << "\n";
}

}  // namespace amihost
