// amihost: a small command-line IBIS-AMI host. It loads a receiver model
// library, builds the parameter string from the model's .ami file, drives
// AMI_Init / AMI_GetWave / AMI_Close as a simulator would, and reports the
// eye the model produces (metrics, eye diagram, waveform, JSON summary).
#include <CLI/CLI.hpp>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "tools/base/DeferredStop.h"
#include "tools/campaign/Campaign.h"
#include "tools/signal/Channel.h"
#include "tools/host/Host.h"
#include "tools/base/HostError.h"
#include "tools/base/InputFile.h"
#include "tools/host/ModelWatch.h"

namespace {

// A whole number from lo to hi, checked on the text before it is converted:
// "-1" never reaches an unsigned value, "1e6" is not silently cut short.
CLI::Validator Count(long long lo, long long hi) {
    const std::string range = std::to_string(lo) + " to " + std::to_string(hi);
    return CLI::Validator(
        [lo, hi, range](std::string& text) {
            char* end = nullptr;
            errno = 0;
            const long long v = std::strtoll(text.c_str(), &end, 10);
            if (text.empty() || *end != '\0' || errno == ERANGE || v < lo || v > hi)
                return "must be a whole number from " + range + ", not " + text;
            return std::string();
        },
        std::to_string(lo) + ".." + std::to_string(hi));
}

// False, with the exit code to end with, when the command line asked for
// help or could not be read (CLI11 has said why).
bool Parsed(CLI::App& app, int argc, char** argv, int& code) {
    try {
        app.parse(argc, argv);
        return true;
    } catch (const CLI::CallForHelp& e) {
        code = app.exit(e);
    } catch (const CLI::ParseError& e) {
        app.exit(e);
        code = static_cast<int>(amihost::ExitCode::kUsage);
    }
    return false;
}

// run()'s exit code; a failure it throws is said on standard error after
// "<program>: " and ends with its own code.
template <typename Run>
int Reported(const char* program, Run run) {
    try {
        return run();
    } catch (const amihost::HostError& e) {
        std::cout.flush();
        std::fprintf(stderr, "%s: %s: %s\n", program, amihost::ExitCodeName(e.Code()), amihost::Printable(e.what()).c_str());
        return static_cast<int>(e.Code());
    } catch (const std::exception& e) {
        std::cout.flush();
        std::fprintf(stderr, "%s: error: %s\n", program, e.what());
        return 1;
    }
}

int RunHere(const amihost::HostOptions& o) {
    return Reported("amihost", [&] {
        const int code = amihost::Campaign::Wanted(o) ? amihost::Campaign::Run(o, std::cout) : amihost::Host::Run(o, std::cout);
        if (code != 0) {
            std::cout.flush();
            std::fprintf(stderr, "amihost: %s (the report above and %s/summary.json say what the model returned)\n",
                         amihost::ExitCodeName(static_cast<amihost::ExitCode>(code)), o.sOutDir.c_str());
        }
        return code;
    });
}

// The run happens in a worker process, so that a model that crashes, ends
// the process or never returns is reported with the call it was in, by this
// process, which stays out of the model's reach.
int RunInWorker(const amihost::HostOptions& o, int callTimeoutSeconds) {
    using amihost::ExitCode;
    using amihost::ModelWatch;
    amihost::ModelWatchShared* watch = ModelWatch::Create();
    if (watch == nullptr) return RunHere(o);
    std::cout.flush();
    std::fflush(nullptr);
    const pid_t parent = getpid();
    const pid_t worker = fork();
    if (worker < 0) return RunHere(o);
    if (worker == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) _exit(1);
        ModelWatch::Install(watch);
        const int code = RunHere(o);
        std::cout.flush();
        std::fflush(nullptr);
        watch->nFinished.store(1);
        // Not exit(): the model's exit handlers are not the run's outcome.
        _exit(code);
    }
    amihost::ForwardStopsTo(worker);
    auto fail = [&](ExitCode code, const std::string& what) {
        std::cout.flush();
        std::fprintf(stderr, "amihost: %s: %s\n", amihost::ExitCodeName(code), what.c_str());
        return static_cast<int>(code);
    };
    int status = 0;
    for (;;) {
        const pid_t w = waitpid(worker, &status, WNOHANG);
        if (w == worker) {
            amihost::ForwardStopsTo(0);
            break;
        }
        if (w < 0 && errno != EINTR) {
            amihost::ForwardStopsTo(0);
            return fail(ExitCode::kModelCrashed, "lost the worker process");
        }
        int64_t since = 0;
        const std::string where = ModelWatch::Oldest(*watch, &since);
        if (!where.empty() && ModelWatch::NowNs() - since > int64_t(callTimeoutSeconds) * 1000000000) {
            kill(worker, SIGKILL);
            waitpid(worker, nullptr, 0);
            amihost::ForwardStopsTo(0);
            return fail(ExitCode::kModelHung, "the model did not return from " + where + " within " +
                                                  std::to_string(callTimeoutSeconds) + " s (--call-timeout)");
        }
        usleep(20000);
    }
    const std::string where = ModelWatch::Oldest(*watch, nullptr);
    const std::string in = where.empty() ? "outside the model's calls" : "in " + where;
    if (WIFEXITED(status)) {
        if (watch->nFinished.load() != 0) return WEXITSTATUS(status);
        return fail(ExitCode::kModelCrashed, "the process was ended " + in + " (exit status " +
                                                 std::to_string(WEXITSTATUS(status)) + ")");
    }
    const int sig = WTERMSIG(status);
    if (sig == SIGINT || sig == SIGTERM || sig == SIGHUP) return 128 + sig;  // the user stopped the run
    return fail(ExitCode::kModelCrashed, (where.empty() ? std::string("amihost crashed outside the model's calls")
                                                        : "the model crashed in " + where) +
                                             " (signal " + std::to_string(sig) + ", " + strsignal(sig) + ")");
}

// amihost merge --out DIR SHARD_DIR...
int Merge(int argc, char** argv) {
    std::string outDir;
    std::vector<std::string> shards;
    CLI::App app{"amihost merge: combines the folders of a campaign's shards (--shard K/N) into the results\n"
                 "of the whole campaign: its table, summary.json and report.html.",
                 "amihost merge"};
    app.add_option("-o,--out", outDir, "folder for the merged results")->required();
    app.add_option("shards", shards, "the shards' --out folders, one for each of the N shards")->required();
    app.footer("Refused: folders of different campaigns (library, .ami, channels or options differ), a shard\n"
               "missing or given twice, a shard with points not done (finish it with --resume).\n"
               "\nFull reference: docs/amihost.md");
    int code = 0;
    if (!Parsed(app, argc, argv, code)) return code;
    return Reported("amihost merge", [&] { return amihost::Campaign::Merge(outDir, shards, std::cout); });
}

}  // namespace

int main(int argc, char** argv) {
    using amihost::ExitCode;
    amihost::InstallDeferredStop();  // a stop lands between whole files
    if (argc > 1 && std::string(argv[1]) == "merge") return Merge(argc - 1, argv + 1);
    amihost::HostOptions o;
    // Counts are read signed and range-checked here, so that "-1" is refused
    // by name instead of wrapping to a huge unsigned value.
    long long bits = static_cast<long long>(o.nBits), block = static_cast<long long>(o.nBlock);
    long long ignoreBits = 0, jobs = 0;

    CLI::App app{
        "amihost: runs an IBIS-AMI receiver model the way a channel simulator does.\n"
        "The parameter string comes from the .ami file's defaults, changed with --set. The input is a\n"
        "waveform file or a built-in PRBS pattern sent through a built-in lossy channel or a Touchstone file."};
    app.get_formatter()->column_width(34);

    // With --ibs the IBIS file names the library and the .ami.
    bool fromIbs = false;
    for (int i = 1; i < argc; ++i) fromIbs = fromIbs || std::string(argv[i]).rfind("--ibs", 0) == 0;
    app.add_option("-l,--lib", o.sLibrary, "IBIS-AMI receiver library (.so)")->required(!fromIbs);
    app.add_option("-a,--ami", o.sAmiFile, "the model's .ami parameter file")->required(!fromIbs);
    app.add_option("--ibs", o.sIbsFile,
                   "IBIS file naming the library, the .ami and the termination");
    app.add_option("--component", o.sComponent, "component of the IBIS file (when it has several)");
    app.add_option("--model", o.sModelName, "model of the IBIS file (when the component uses several)");
    app.add_option("-s,--set", o.vSets, "override a parameter: NAME=VALUE (repeatable)")->type_name("NAME=VALUE");

    app.add_option("-i,--input", o.sInput,
                   "waveform file instead of the PRBS (see below)");
    app.add_option("--prbs", o.iPrbs, "PRBS order of the built-in pattern")->check(CLI::IsMember({7, 15, 23, 31}))
        ->capture_default_str();
    app.add_option("--bits", bits, "bits of the PRBS pattern to send")
        ->check(Count(1, 1000000000))->capture_default_str();
    auto* bitRate = app.add_option("--bit-rate", o.dBitRate, "bit rate in bit/s")->capture_default_str();
    app.add_option("--samples-per-bit", o.iSamplesPerBit,
                   "samples per UI (see Timing below)")
        ->check(Count(1, 100000))->capture_default_str();
    app.add_option("--amplitude", o.dAmplitude, "NRZ levels are +/- this many volts")->capture_default_str();
    bool noChannel = false;
    app.add_flag("--no-channel", noChannel, "send the PRBS straight to the model");
    std::vector<std::string> channels;
    app.add_option("--channel", channels,
                   "Touchstone channel (.s2p, .s4p, ...) instead; give it again for a campaign over several");
    std::string shard;
    app.add_option("--shard", shard, "run only the K-th of N parts of the campaign's points (1-based)")
        ->type_name("K/N")
        ->check(CLI::Validator(
            [](std::string& text) {
                int k = 0, n = 0;
                char end = 0;
                if (std::sscanf(text.c_str(), "%d/%d%c", &k, &n, &end) != 2 || n < 1 || n > 100000 || k < 1 || k > n)
                    return "must be K/N with 1 <= K <= N <= 100000, not " + text;
                return std::string();
            },
            ""));
    app.add_flag("--resume", o.bResume, "keep the campaign points already done in --out and run the rest");
    std::vector<std::string> ports;
    app.add_option("--ports", ports,
                   "differential pairing of a 4-port: 13-24 or 12-34; once for all channels or once per --channel")
        ->default_str(o.sPorts);

    app.add_option("--block", block, "samples per AMI_GetWave call")
        ->check(Count(1, 1LL << 27))->capture_default_str();
    auto* ignore = app.add_option("--ignore-bits", ignoreBits, "bits the eye leaves out (default: Ignore_Bits, else 100)")
        ->check(Count(0, 1000000000));
    app.add_flag("--sweep-eq", o.bSweep,
                 "run every setting of --sweep-param, in parallel");
    app.add_option("--sweep-param", o.sSweepParam, "parameter swept through its Range or List")
        ->capture_default_str();
    auto* jobsOption = app.add_option("-j,--jobs", jobs, "sweep threads (default: one per core)")
        ->check(Count(1, 1024));

    app.add_flag("--stat-eye", o.bStatEye,
                 "statistical eye, bathtub and BER contours of the (best) setting");
    app.add_option("--noise", o.dNoiseRms, "Rx noise for --stat-eye, V rms")->capture_default_str();
    app.add_option("--rj", o.dRjRms, "Rx random jitter for --stat-eye, s rms")->capture_default_str();
    app.add_flag("--datasheet", o.bDatasheet,
                 "DC gain, peaking and delay of every --sweep-param setting");

    app.add_option("-o,--out", o.sOutDir, "folder for the results")->capture_default_str();
    bool noProgress = false;
    app.add_flag("--no-progress", noProgress, "never draw the progress bar");
    int callTimeout = 60;
    app.add_option("--call-timeout", callTimeout, "seconds one call into the model may take")
        ->check(CLI::Range(1, 86400))->capture_default_str();

    const amihost::Channel channel(amihost::Channel::DefaultCorners(), 1e-12);
    char loss[200];
    std::snprintf(loss, sizeof loss,
                  "%.1f dB at 5 GHz (the Nyquist frequency of 10 Gb/s) and %.1f dB at 7.8125 GHz (of 15.625 Gb/s)",
                  channel.LossDb(5e9), channel.LossDb(7.8125e9));
    app.footer(
        "Built-in channel: " + amihost::Channel::Describe(channel.Corners()) +
        ",\n  H(s) = 1 / ((1 + s/(2 pi 1 GHz)) (1 + s/(2 pi 6 GHz))), unit gain at DC, discretised step-invariantly.\n"
        "  Loss " + loss + ";\n"
        "  without equalization the eye of a 15.625 Gb/s pattern is closed. Each run prints the loss at its\n"
        "  own Nyquist frequency.\n"
        "\nTiming: the sample interval passed to AMI_Init and used for the stimulus is 1 / (bit rate x samples\n"
        "per bit). A model that declares SampleRate / SamplesPerBit gets 1 / sample interval and the samples\n"
        "per bit unless you --set them; an override that disagrees is used with a WARNING.\n"
        "\nWaveform file (--input): one sample per line, or CSV whose last column is the waveform; with two or\n"
        "more columns the first is the time in seconds and sets the sample interval. A header line and lines\n"
        "starting with # are skipped. Its bits are unknown, so the eye is measured on the decisions taken at\n"
        "the phase of widest spread: a closed eye then reads as nearly closed rather than negative.\n"
        "\nOutputs in --out: summary.json always; a single run writes waveform.csv and eye.png, --sweep-eq\n"
        "writes the eye diagrams of the first and the best setting (eye_EQ0.png, eye_EQ<best>.png) and the\n"
        "best setting's waveform. Eye height is in volts, eye width in UI, both at the best sampling phase.\n"
        "--stat-eye adds stat_eye.png (density, contours at BER 1e-6, 1e-9, 1e-12, bathtub) and its figures\n"
        "in summary.json; --datasheet writes the table, datasheet.png and summary.json only.\n"
        "\nExit codes: 0 success, 2 bad command line, 3 missing library, 4 missing symbols, 5 bad file,\n"
        "6 bad parameter, 7 AMI_Init failed, 8 AMI_GetWave failed, 9 cannot write output,\n"
        "10 the model's output holds NaN or infinite samples, 11 the model crashed or ended the process,\n"
        "12 a call into the model did not return within --call-timeout. The model runs in a worker process;\n"
        "codes 11 and 12 name the call it was in.\n"
        "\nCampaigns: --channel given more than once runs every channel with every setting; --shard K/N\n"
        "runs the K-th of N parts of those points, 'amihost merge --out DIR SHARD_DIR...' joins them, and\n"
        "--resume keeps the points already done in --out. Each point's result is kept as soon as it ends.\n"
        "\nExample: amihost --lib build/KV2_RX_x64.so --ami kit/KV2_RX.ami --prbs 15 --bit-rate 15.625e9 \\\n"
        "           --samples-per-bit 64 --sweep-eq --stat-eye\n"
        "\nFull reference: docs/amihost.md");

    int code = 0;
    if (!Parsed(app, argc, argv, code)) return code;
    o.nBits = static_cast<size_t>(bits);
    o.nBlock = static_cast<size_t>(block);
    if (ignore->count() > 0) o.iIgnoreBits = static_cast<long>(ignoreBits);
    if (jobsOption->count() > 0) o.nJobs = static_cast<unsigned>(jobs);
    o.bBitRateGiven = bitRate->count() > 0;
    o.bChannel = !noChannel;
    if (channels.size() == 1) o.sChannelFile = channels[0];
    if (channels.size() > 1) o.vChannelFiles = channels;
    if (ports.size() == 1) o.sPorts = ports[0];
    if (ports.size() > 1) {
        if (ports.size() != channels.size()) {
            std::fprintf(stderr, "amihost: bad command line: --ports is given %zu times for %zu channels: give it once, "
                                 "or once per --channel\n", ports.size(), channels.size());
            return static_cast<int>(ExitCode::kUsage);
        }
        o.vPorts = ports;
    }
    if (!shard.empty()) std::sscanf(shard.c_str(), "%d/%d", &o.iShard, &o.nShards);
    o.bProgress = !noProgress;

    return RunInWorker(o, callTimeout);
}
