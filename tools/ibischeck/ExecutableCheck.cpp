// ExecutableCheck: ELF header, then load, Init, GetWave and Close in a child.
#include "tools/ibischeck/ExecutableCheck.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "tools/host/AmiLibrary.h"
#include "tools/base/InputFile.h"

namespace ibischeck {

namespace {

const unsigned char kElfClass32 = 1, kElfClass64 = 2;
const unsigned kMachineX86_64 = 62, kMachineI386 = 3;
const int kHostBits = static_cast<int>(8 * sizeof(void*));

// The child's messages: one line each, "S <stage>" when a stage begins,
// "E <message>" for a finding, "N <message>" for a remark.
void Say(int fd, char kind, const std::string& text) {
    std::string line = std::string(1, kind) + " " + text;
    for (char& c : line)
        if (c == '\n' || c == '\r') c = ' ';
    line += '\n';
    ssize_t ignored = write(fd, line.data(), line.size());
    (void)ignored;
}

// Runs in the child; returns its exit status.
int Exercise(int fd, const std::string& library, std::string parameters, bool getWaveExists) {
    Say(fd, 'S', "dlopen");
    void* h = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (h == nullptr) {
        const char* why = dlerror();
        Say(fd, 'E', std::string("cannot be loaded: ") + (why != nullptr ? why : "unknown reason"));
        return 1;
    }
    auto init = reinterpret_cast<amihost::AmiInitFn>(dlsym(h, "AMI_Init"));
    auto getWave = reinterpret_cast<amihost::AmiGetWaveFn>(dlsym(h, "AMI_GetWave"));
    auto close = reinterpret_cast<amihost::AmiCloseFn>(dlsym(h, "AMI_Close"));
    if (init == nullptr) Say(fd, 'E', "does not export AMI_Init");
    if (close == nullptr) Say(fd, 'E', "does not export AMI_Close");
    if (getWaveExists && getWave == nullptr) Say(fd, 'E', "does not export AMI_GetWave, although GetWave_Exists is True");
    if (init == nullptr || close == nullptr) return 1;

    // 1 ps samples, 100 per bit; the impulse response is a unit-area pulse.
    const double dt = 1e-12, bitTime = 1e-10;
    const int rows = ExecutableCheck::kStepSamples;
    std::vector<double> impulse(rows, 0.0);
    impulse[0] = 1.0 / dt;
    std::vector<char> text(parameters.begin(), parameters.end());
    text.push_back('\0');
    char* out = nullptr;
    char* msg = nullptr;
    void* handle = nullptr;
    Say(fd, 'S', "AMI_Init");
    const long ok = init(impulse.data(), rows, 0, dt, bitTime, text.data(), &out, &handle, &msg);
    const std::string message = msg != nullptr ? msg : "";
    if (ok != 1) {
        Say(fd, 'E', "returns " + std::to_string(ok) + " from AMI_Init with the .ami defaults" +
                         (message.empty() ? std::string() : ": " + message));
        return 1;
    }
    if (!message.empty()) Say(fd, 'N', "says in AMI_Init: " + message);
    bool clean = true;
    if (getWaveExists && getWave != nullptr) {
        std::vector<double> wave(rows, 1.0);
        std::vector<double> clocks(rows + 1, 0.0);
        Say(fd, 'S', "AMI_GetWave");
        const long waved = getWave(wave.data(), rows, clocks.data(), &out, handle);
        clean = waved == 1 && ExecutableCheck::Settles(wave);
        size_t bad = 0;
        while (bad < wave.size() && std::isfinite(wave[bad])) ++bad;
        if (waved != 1) Say(fd, 'E', "returns " + std::to_string(waved) + " from AMI_GetWave on a step");
        else if (bad < wave.size())
            Say(fd, 'E', "gives a non-finite sample (" + std::string(std::isnan(wave[bad]) ? "NaN" : "infinite") +
                             ") at sample " + std::to_string(bad) + " of its step response through AMI_GetWave");
        else if (!clean)
            Say(fd, 'E', "does not settle: its step response through AMI_GetWave still moves in the last eighth "
                         "of 32768 samples");
    }
    Say(fd, 'S', "AMI_Close");
    const long closed = close(handle);
    if (closed != 1) Say(fd, 'E', "returns " + std::to_string(closed) + " from AMI_Close");
    Say(fd, 'S', "done");
    if (clean && closed == 1)
        Say(fd, 'N', getWaveExists ? "loads; AMI_Init, AMI_GetWave (the step settles) and AMI_Close succeed"
                                   : "loads; AMI_Init and AMI_Close succeed");
    return 0;
}

}  // namespace

bool ExecutableCheck::Settles(const std::vector<double>& y) {
    if (y.empty()) return false;
    double peak = 0;
    for (double v : y) {
        if (!std::isfinite(v)) return false;
        peak = std::fmax(peak, std::fabs(v));
    }
    const double final = y.back(), tolerance = 0.01 * peak;
    for (size_t i = y.size() - y.size() / 8; i < y.size(); ++i)
        if (std::fabs(y[i] - final) > tolerance) return false;
    return true;
}

std::string ExecutableCheck::ElfProblem(const std::string& path, int bits) {
    unsigned char h[20] = {};
    std::ifstream in(path, std::ios::binary);
    if (!in.read(reinterpret_cast<char*>(h), sizeof h) || memcmp(h, "\x7f" "ELF", 4) != 0)
        return "is not an ELF shared library";
    const int fileBits = h[4] == kElfClass32 ? 32 : h[4] == kElfClass64 ? 64 : 0;
    if (fileBits == 0) return "has an unknown ELF class";
    if (fileBits != bits)
        return "is a " + std::to_string(fileBits) + "-bit ELF file, but its platform says " + std::to_string(bits) + " bits";
    // e_machine, in the byte order EI_DATA gives, right after e_type.
    const unsigned machine = h[5] == 1 ? (h[18] | h[19] << 8) : (h[18] << 8 | h[19]);
    const unsigned expected = fileBits == 64 ? kMachineX86_64 : kMachineI386;
    if (machine != expected)
        return "is built for ELF machine " + std::to_string(machine) + ", not " + (fileBits == 64 ? "x86-64" : "x86");
    return "";
}

std::string ExecutableCheck::Run(const ExecutableLine& e, const std::string& parameters, bool getWaveExists,
                                 const amihost::SandboxLimits& limits, const std::string& shown, Report& report) {
    const size_t slash = e.sLibrary.rfind('/');
    const std::string name = "Executable " + e.sLibrary.substr(slash == std::string::npos ? 0 : slash + 1);
    const std::string elf = ElfProblem(e.sLibrary, e.nBits);
    if (!elf.empty()) {
        report.Error(shown, e.nLine, name + " " + elf);
        return "";
    }
    if (e.nBits != kHostBits) {
        report.Note(shown, e.nLine, name + " is a " + std::to_string(e.nBits) + "-bit library; this " +
                                        std::to_string(kHostBits) + "-bit checker does not load it");
        return "";
    }
    // The child works in an empty folder of its own: a path relative to ours
    // must be made absolute before it moves there.
    std::error_code ec;
    const std::string library = std::filesystem::absolute(e.sLibrary, ec).string();
    amihost::Sandbox sandbox(limits);
    const amihost::SandboxResult r =
        sandbox.Run([&](int fd) { return Exercise(fd, ec ? e.sLibrary : library, parameters, getWaveExists); });
    if (!r.bStarted) {
        report.Error(shown, e.nLine, name + ": cannot start the child process");
        return "";
    }
    const std::string& received = r.sMessages;
    std::string stage = "start";
    bool complained = false;
    size_t pos = 0;
    while (pos < received.size()) {
        size_t end = received.find('\n', pos);
        if (end == std::string::npos) end = received.size();
        const std::string line = received.substr(pos, end - pos);
        pos = end + 1;
        if (line.size() < 2) continue;
        const std::string text = line.substr(2);
        if (line[0] == 'S') stage = text;
        else if (line[0] == 'N') report.Note(shown, e.nLine, name + " " + text);
        else {
            complained = true;
            report.Error(shown, e.nLine, name + " " + text);
        }
    }
    const std::string seconds = std::to_string(limits.nTimeoutSeconds) + " s";
    if (r.bTimedOut)
        report.Error(shown, e.nLine, name + " did not finish " + stage + " within " + seconds);
    else if (r.bSignaled && (r.nSignal == SIGXCPU || r.nSignal == SIGXFSZ))
        report.Error(shown, e.nLine, name + " was stopped in " + stage + ": it exceeded its " +
                                         (r.nSignal == SIGXCPU ? "CPU time of " + seconds
                                                               : "file size limit of " + std::to_string(limits.nFileSizeBytes >> 20) + " MiB"));
    else if (r.bSignaled)
        report.Error(shown, e.nLine, name + " crashed in " + stage + " (signal " + std::to_string(r.nSignal) + ", " +
                                         strsignal(r.nSignal) + ")");
    else if (stage != "done" && !complained)
        report.Error(shown, e.nLine, name + " ended the process in " + stage + " (exit status " +
                                         std::to_string(r.nExitStatus) + ")");
    if (r.bLeftProcesses)
        report.Error(shown, e.nLine, name + " left processes running when it ended; they were killed");
    if (r.nOutputBytes > 0) {
        const size_t shownBytes = std::min<size_t>(r.sOutput.size(), 400);
        report.Note(shown, e.nLine, name + " wrote " + std::to_string(r.nOutputBytes) + " bytes to its output" +
                                        (shownBytes < r.nOutputBytes ? ", beginning" : "") + ": " +
                                        amihost::Printable(r.sOutput.substr(0, shownBytes)));
    }
    return sandbox.Isolation();
}

}  // namespace ibischeck
