// Host: amihost's run from parsed options to written results.
#include "tools/host/Host.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <cmath>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <thread>
#include <unistd.h>

#include "tools/ibis/AmiFile.h"
#include "tools/host/AmiLibrary.h"
#include "tools/signal/Channel.h"
#include "tools/eye/Datasheet.h"
#include "tools/eye/EyeMetrics.h"
#include "tools/eye/EyePlot.h"
#include "tools/base/HostError.h"
#include "tools/ibis/IbsFile.h"
#include "tools/host/ModelRun.h"
#include "tools/ibis/ParameterString.h"
#include "tools/signal/Prbs.h"
#include "tools/host/ProgressBar.h"
#include "tools/signal/PulseResponse.h"
#include "tools/ibis/RateMatch.h"
#include "tools/eye/StatEye.h"
#include "tools/eye/StatEyeReport.h"
#include "tools/signal/TouchstoneChannel.h"
#include "tools/host/WaveformFile.h"

namespace amihost {

namespace {

// The sampling instants searched, in UI after the channel's bulk delay: the
// model and what the channel spreads after its delay take a few UI more.
const int kMaxLatencyUI = 32;
// Length of the impulse response handed to AMI_Init, in UI.
const int kImpulseUI = 32;
// Every run's output is kept for the report: at most this many samples over
// all runs (1 GiB of them), refused before anything is allocated.
const size_t kMaxSamples = size_t(1) << 27;
// Length of the pulse responses of the statistical eye, in UI, at least; a
// longer channel response lengthens them to cover it whole.
const int kPulseUI = 128;

struct Stimulus {
    std::vector<double> vWave;      // what the model receives, V
    std::vector<uint8_t> vBits;     // the bits sent (empty for a waveform file)
    double dSampleInterval = 0.0;   // s
    double dBitTime = 0.0;          // s
    int iSamplesPerBit = 0;
    std::vector<double> vImpulse;   // channel response to a one-sample unit pulse
    std::vector<double> vPulse;     // channel response to a one-UI unit pulse (PRBS only)
    std::string sDescription;
    bool bChannel = false;
    std::string sChannel;           // one line describing the channel
    double dLossAtNyquist = 0.0;    // dB
    int iChannelDelay = 0;          // samples before the channel's pulse response rises (PRBS only)
    std::vector<std::string> vChannelWarnings;  // what the channel's data cannot tell
};

// The channel's bulk delay: one UI before its pulse response peaks, so that
// the eye search starts before the main cursor whatever the channel's length.
int BulkDelay(const std::vector<double>& pulse, int samplesPerBit) {
    size_t peak = 0;
    for (size_t i = 1; i < pulse.size(); ++i)
        if (std::fabs(pulse[i]) > std::fabs(pulse[peak])) peak = i;
    return std::max(0, static_cast<int>(peak) - samplesPerBit);
}

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

std::string Fmt(const char* format, double v) {
    char buf[64];
    std::snprintf(buf, sizeof buf, format, v);
    return buf;
}

// The model ran to the end and returned only finite samples: its eye is measured.
bool Measured(const Outcome& o) {
    return o.run.iInitResult != 0 && o.run.iGetWaveResult != 0 && o.nNonFinite == 0;
}

std::string TooMany(const std::string& what, size_t runs) {
    return what + (runs > 1 ? " for each of " + std::to_string(runs) + " settings" : std::string()) +
           " is more than the " + std::to_string(kMaxSamples) + " samples amihost keeps in memory";
}

// The timing and levels of the command line, checked before anything uses
// them: the model is only ever given a positive, finite, normal sample
// interval, and the statistical eye a jitter it can spread over a UI.
void CheckNumbers(const HostOptions& o) {
    if (o.iSamplesPerBit < 1) throw HostError(ExitCode::kBadParameter, "--samples-per-bit must be at least 1");
    if (!(o.dBitRate >= 1.0 && o.dBitRate <= 1e14))
        throw HostError(ExitCode::kBadParameter, "--bit-rate must be from 1 to 1e14 bit/s");
    if (!(o.dAmplitude >= 1e-9 && o.dAmplitude <= 1e6))
        throw HostError(ExitCode::kBadParameter, "--amplitude must be from 1e-9 to 1e6 V");
    if (!(o.dNoiseRms >= 0.0 && o.dNoiseRms <= 1e6) || !(o.dRjRms >= 0.0))
        throw HostError(ExitCode::kBadParameter, "--noise and --rj must be zero or positive");
    if (!(o.dRjRms <= 0.25 / o.dBitRate))
        throw HostError(ExitCode::kBadParameter, "--rj must be at most a quarter of the bit time (" +
                                                     Fmt("%g", 0.25 / o.dBitRate) + " s)");
}

// terminationOhms: the receiver's input resistance per leg (0: matched).
// runs: how many outputs of the waveform's length are kept.
Stimulus MakeStimulus(const HostOptions& o, double terminationOhms, size_t runs) {
    CheckNumbers(o);
    Stimulus s;
    s.iSamplesPerBit = o.iSamplesPerBit;
    s.dBitTime = 1.0 / o.dBitRate;
    s.dSampleInterval = 1.0 / (o.dBitRate * o.iSamplesPerBit);
    const size_t impulseLength = static_cast<size_t>(kImpulseUI) * o.iSamplesPerBit;

    if (!o.sInput.empty()) {
        Waveform w = WaveformFile::Read(o.sInput);
        if (w.vValues.size() > kMaxSamples / runs)
            throw HostError(ExitCode::kBadFile, TooMany("waveform file " + o.sInput + ": " +
                                                            std::to_string(w.vValues.size()) + " samples", runs));
        if (w.bHasTime) {
            // The file's own time step decides the sample interval; an explicit
            // bit rate must agree with it.
            if (o.bBitRateGiven && std::fabs(w.dTimeStep - s.dSampleInterval) > 1e-6 * s.dSampleInterval)
                throw HostError(ExitCode::kBadFile,
                                "waveform file " + o.sInput + " has a time step of " + Fmt("%g", w.dTimeStep) +
                                    " s, but --bit-rate and --samples-per-bit give " + Fmt("%g", s.dSampleInterval) +
                                    " s");
            s.dSampleInterval = w.dTimeStep;
            s.dBitTime = w.dTimeStep * o.iSamplesPerBit;
        }
        s.vWave = std::move(w.vValues);
        s.vImpulse.assign(impulseLength, 0.0);
        s.vImpulse[0] = 1.0;
        s.sDescription = "waveform file " + o.sInput + ", " + std::to_string(s.vWave.size()) + " samples";
        return s;
    }

    if (o.nBits > kMaxSamples / runs / static_cast<size_t>(o.iSamplesPerBit))
        throw HostError(ExitCode::kBadParameter, TooMany("--bits " + std::to_string(o.nBits) + " x --samples-per-bit " +
                                                             std::to_string(o.iSamplesPerBit), runs));
    Prbs prbs(o.iPrbs);
    s.vBits = prbs.Bits(o.nBits);
    s.vWave.reserve(o.nBits * o.iSamplesPerBit);
    for (uint8_t b : s.vBits) s.vWave.insert(s.vWave.end(), o.iSamplesPerBit, b ? o.dAmplitude : -o.dAmplitude);
    s.vImpulse.assign(impulseLength + 1, 0.0);
    s.vImpulse[1] = 1.0;
    s.vPulse.assign(static_cast<size_t>(kPulseUI) * o.iSamplesPerBit + 1, 0.0);
    std::fill(s.vPulse.begin() + 1, s.vPulse.begin() + 1 + o.iSamplesPerBit, 1.0);
    if (o.bChannel && !o.sChannelFile.empty()) {
        const TouchstoneChannel channel(o.sChannelFile, o.sPorts, s.dSampleInterval, terminationOhms);
        // The pulse covers the channel's whole impulse response, and a UI more.
        if (channel.ImpulseLength() + 2 * o.iSamplesPerBit > s.vPulse.size())
            s.vPulse.resize(channel.ImpulseLength() + 2 * o.iSamplesPerBit, 0.0);
        channel.Process(s.vWave);
        channel.Process(s.vImpulse);
        channel.Process(s.vPulse);
        s.bChannel = true;
        s.dLossAtNyquist = channel.LossDb(0.5 / s.dBitTime);
        s.sChannel = channel.Describe() + "; " +
                     (std::isfinite(s.dLossAtNyquist) ? "loss " + Fmt("%.1f", s.dLossAtNyquist) + " dB at Nyquist ("
                                                      : std::string("no data at Nyquist (simulated as passing nothing at ")) +
                     Fmt("%g", 0.5e-9 / s.dBitTime) + " GHz)";
        s.vChannelWarnings = channel.Warnings(1.0 / s.dBitTime);
    } else if (o.bChannel) {
        const Channel channel(Channel::DefaultCorners(), s.dSampleInterval);
        channel.Process(s.vWave);
        channel.Process(s.vImpulse);
        channel.Process(s.vPulse);
        s.bChannel = true;
        s.dLossAtNyquist = channel.LossDb(0.5 / s.dBitTime);
        s.sChannel = Host::ChannelSummary(1.0 / s.dBitTime);
    }
    // The leading zero only kept the pulse off the filter's settled start.
    s.vImpulse.erase(s.vImpulse.begin());
    s.vPulse.erase(s.vPulse.begin());
    if (s.bChannel) {
        s.iChannelDelay = BulkDelay(s.vPulse, o.iSamplesPerBit);
        s.sChannel += "; delay " + Fmt("%.1f", s.iChannelDelay * s.dSampleInterval * 1e12) + " ps (" +
                      Fmt("%.1f", static_cast<double>(s.iChannelDelay) / o.iSamplesPerBit) + " UI)";
    }
    s.sDescription = "PRBS" + std::to_string(o.iPrbs) + " NRZ, " + std::to_string(o.nBits) + " bits at " +
                     Fmt("%g", o.dBitRate / 1e9) + " Gb/s, " + std::to_string(o.iSamplesPerBit) +
                     " samples/bit, +/-" + Fmt("%g", o.dAmplitude) + " V";
    return s;
}

EyeResult MeasureEye(const Stimulus& s, const std::vector<double>& wave, size_t ignoreBits) {
    try {
        if (s.vBits.empty()) return EyeMetrics::MeasureBlind(wave, s.iSamplesPerBit, ignoreBits);
        const int first = s.iChannelDelay;
        return EyeMetrics::Measure(wave, s.iSamplesPerBit, s.vBits, ignoreBits, first + kMaxLatencyUI * s.iSamplesPerBit,
                                   first);
    } catch (const std::invalid_argument& e) {
        if (s.vBits.empty()) throw HostError(ExitCode::kBadFile, std::string(e.what()) + " (or use fewer --ignore-bits)");
        throw HostError(ExitCode::kBadParameter, std::string(e.what()) + " (use more bits or fewer ignored bits)");
    }
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
    std::ofstream f(path, std::ios::binary);
    f << text;
    if (!f) throw HostError(ExitCode::kOutputFailed, "cannot write " + path);
}

std::string Title(const Outcome& o) {
    std::string t = o.sLabel + ": ";
    if (o.eye.bOpen)
        t += "H " + Fmt("%.3f", o.eye.dHeight) + " V, W " + Fmt("%.2f", o.eye.dWidthUI) + " UI";
    else
        t += "CLOSED (H " + Fmt("%.3f", o.eye.dHeight) + " V)";
    return t;
}

// Index of the best outcome: the largest eye height, then the widest eye,
// then the first.
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
    Datasheet::Plot(o.sSweepParam, rows, std::min(0.5 / dt, 25e9), png);
    nlohmann::ordered_json doc = {{"library", o.sLibrary},       {"ami_file", o.sAmiFile},
                                  {"root", ami.RootName()},      {"sample_interval_s", dt},
                                  {"parameter", o.sSweepParam},  {"rate_match", RateJson(rate)},
                                  {"datasheet", Datasheet::Json(rows)}, {"files", {png, json}}};
    WriteText(json, doc.dump(2) + "\n");
    out << "wrote      : " << png << " " << json << "\n";
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

    const size_t runs = o.bSweep ? std::max<size_t>(1, base.SweepValues(o.sSweepParam).size()) : 1;
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
                if (oc.run.iInitResult == 0 || oc.run.iGetWaveResult == 0) continue;
                // A NaN or infinite sample would read as an open eye.
                const auto bad = std::find_if(oc.run.vOutput.begin(), oc.run.vOutput.end(),
                                              [](double v) { return !std::isfinite(v); });
                oc.nNonFinite = bad == oc.run.vOutput.end() ? 0 : static_cast<size_t>(bad - oc.run.vOutput.begin()) + 1;
                if (oc.nNonFinite != 0) continue;
                try {
                    oc.eye = MeasureEye(stim, oc.run.vOutput, ignoreBits);
                } catch (...) {
                    oc.failure = std::current_exception();
                }
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

    // Report.
    const size_t best = Best(outcomes);
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
        out << "parameters : " << base.Text() << ", sweeping " << o.sSweepParam << "\n";
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

    StatEyeSettings statSettings;
    StatEyeResult statEye;
    const bool statEyeDone = o.bStatEye && best < outcomes.size();
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
        StatEyeReport::WritePng(statEye, "STATISTICAL EYE, " + outcomes[best].sLabel, path("stat_eye.png"));
        written.push_back(path("stat_eye.png"));
    }

    // NaN and infinities are written as null.
    nlohmann::ordered_json j, null;
    j["library"] = o.sLibrary;
    j["ami_file"] = o.sAmiFile;
    j["root"] = ami.RootName();
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
    j["input_eye"] = stim.vBits.empty() ? null : EyeJson(inputEye, stim.dBitTime);
    j["block"] = o.nBlock;
    j["ignore_bits"] = ignoreBits;
    if (o.bSweep) j["sweep"] = o.sSweepParam;
    nlohmann::ordered_json runList = nlohmann::ordered_json::array();
    for (const Outcome& oc : outcomes) runList.push_back(RunJson(oc, stim.dBitTime));
    j["runs"] = runList;
    j["best"] = best < outcomes.size() ? nlohmann::ordered_json(best) : null;
    written.push_back(path("summary.json"));
    j["files"] = written;
    j["rate_match"] = RateJson(rate);
    if (statEyeDone) j["stat_eye"] = StatEyeReport::Json(statEye, statSettings);
    if (!o.sIbsFile.empty())
        j["ibis"] = {{"file", o.sIbsFile},          {"component", rx.sComponent},
                     {"model", rx.sModel},          {"platform", rx.sPlatform},
                     {"termination_ohms", rx.dTerminationOhms}, {"termination_from", rx.sTermination}};
    WriteText(path("summary.json"), j.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n");

    out << "wrote      :";
    for (const std::string& w : written) out << " " << w;
    out << "\n";
    return code;
}

}  // namespace amihost
