// Sandbox: the keeper, reaper and worker processes, and the cleanup.
#include "tools/base/Sandbox.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <vector>

namespace amihost {

namespace {

// A sanitizer reserves terabytes of shadow memory up front; under it an
// address-space limit would refuse every later mapping.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kAddressLimitWorks = false;
#else
constexpr bool kAddressLimitWorks = true;
#endif

std::string MiB(uint64_t bytes) { return std::to_string(bytes >> 20) + " MiB"; }

// Parent pid of every process in /proc, by pid.
std::vector<pid_t> ChildrenOf(pid_t parent) {
    std::vector<pid_t> children;
    DIR* d = opendir("/proc");
    if (d == nullptr) return children;
    while (const dirent* e = readdir(d)) {
        char* end = nullptr;
        const long pid = strtol(e->d_name, &end, 10);
        if (pid <= 0 || *end != '\0') continue;
        std::ifstream in(std::string("/proc/") + e->d_name + "/stat");
        std::string stat;
        std::getline(in, stat);
        // "pid (comm) state ppid ...": comm may hold blanks and parentheses.
        const size_t close = stat.rfind(')');
        if (close == std::string::npos) continue;
        char state = 0;
        long ppid = 0;
        if (sscanf(stat.c_str() + close + 1, " %c %ld", &state, &ppid) == 2 && ppid == parent)
            children.push_back(static_cast<pid_t>(pid));
    }
    closedir(d);
    return children;
}

// Processes of this user now, for a process limit that leaves room for
// exactly nExtraProcesses more.
long ProcessesOfThisUser() {
    long n = 0;
    const uid_t uid = getuid();
    DIR* d = opendir("/proc");
    if (d == nullptr) return 0;
    while (const dirent* e = readdir(d)) {
        struct stat st;
        if (e->d_name[0] >= '1' && e->d_name[0] <= '9' && stat((std::string("/proc/") + e->d_name).c_str(), &st) == 0 &&
            st.st_uid == uid)
            ++n;
    }
    closedir(d);
    return n;
}

void Limit(int resource, rlim_t soft, rlim_t hard) {
    const rlimit l{soft, hard};
    setrlimit(resource, &l);
}

void CloseBoth(int fds[2]) {
    close(fds[0]);
    close(fds[1]);
}

void WriteAll(int fd, const void* data, size_t size) {
    const char* p = static_cast<const char*>(data);
    while (size > 0) {
        const ssize_t n = write(fd, p, size);
        if (n <= 0 && errno != EINTR) return;
        if (n > 0) p += n, size -= static_cast<size_t>(n);
    }
}

}  // namespace

std::string Sandbox::LimitsText() const {
    std::string s = m_limits.nAddressSpaceBytes == 0 ? "no address-space limit"
                    : kAddressLimitWorks             ? "address space " + MiB(m_limits.nAddressSpaceBytes)
                                                     : "no address-space limit (sanitizer build)";
    s += ", CPU time " + std::to_string(m_limits.nTimeoutSeconds) + " s, files up to " + MiB(m_limits.nFileSizeBytes) +
         ", " + std::to_string(m_limits.nExtraProcesses) + " more processes, an empty working directory, no input";
    return s;
}

int Sandbox::KillAllChildren() {
    int killed = 0;
    for (int round = 0; round < 1000; ++round) {
        const std::vector<pid_t> children = ChildrenOf(getpid());
        if (children.empty()) break;
        for (pid_t c : children) killed += kill(c, SIGKILL) == 0;
        for (pid_t c : children) waitpid(c, nullptr, 0);
    }
    return killed;
}

SandboxResult Sandbox::Run(const std::function<int(int)>& work) const {
    SandboxResult r;
    std::string dir = (std::filesystem::temp_directory_path() / "kv2-sandbox-XXXXXX").string();
    if (mkdtemp(dir.data()) == nullptr) return r;
    // Orphans of the worker come back to this process instead of init, so
    // that they can be found and killed.
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    int msg[2], out[2], status[2], info[2];
    if (pipe(msg) != 0) return r;
    if (pipe(out) != 0) return CloseBoth(msg), r;
    if (pipe(status) != 0) return CloseBoth(msg), CloseBoth(out), r;
    if (pipe(info) != 0) return CloseBoth(msg), CloseBoth(out), CloseBoth(status), r;
    const long processes = ProcessesOfThisUser() + m_limits.nExtraProcesses;
    const pid_t self = getpid();
    fflush(stdout);
    fflush(stderr);
    const pid_t keeper = fork();
    if (keeper == 0) {
        setsid();
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != self) _exit(1);
        close(msg[0]), close(out[0]), close(status[0]), close(info[0]);
        const bool isolated = m_limits.bNamespaces && (unshare(CLONE_NEWUSER | CLONE_NEWPID | CLONE_NEWNET) == 0 ||
                              unshare(CLONE_NEWPID | CLONE_NEWNET) == 0);
        WriteAll(info[1], isolated ? "N" : "G", 1);
        close(info[1]);
        const pid_t reaper = fork();
        if (reaper == 0) {
            // The keeper killed at the time limit takes the reaper with it,
            // and the reaper's end ends the namespace.
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (!isolated) prctl(PR_SET_CHILD_SUBREAPER, 1);
            const pid_t worker = fork();
            if (worker == 0) {
                close(msg[0]), close(out[0]), CloseBoth(status);
                if (chdir(dir.c_str()) != 0) _exit(126);
                const int null = open("/dev/null", O_RDONLY);
                dup2(null, STDIN_FILENO);
                dup2(out[1], STDOUT_FILENO);
                dup2(out[1], STDERR_FILENO);
                close(null), close(out[1]);
                if (kAddressLimitWorks && m_limits.nAddressSpaceBytes != 0)
                    Limit(RLIMIT_AS, m_limits.nAddressSpaceBytes, m_limits.nAddressSpaceBytes);
                Limit(RLIMIT_CPU, static_cast<rlim_t>(m_limits.nTimeoutSeconds),
                      static_cast<rlim_t>(m_limits.nTimeoutSeconds) + 1);
                Limit(RLIMIT_FSIZE, m_limits.nFileSizeBytes, m_limits.nFileSizeBytes);
                Limit(RLIMIT_CORE, 0, 0);
                Limit(RLIMIT_NPROC, static_cast<rlim_t>(processes), static_cast<rlim_t>(processes));
                _exit(work(msg[1]));
            }
            close(msg[1]), close(out[1]), close(status[0]);
            int st = 0;
            for (;;) {
                const pid_t p = waitpid(-1, &st, 0);
                if (p == worker) break;
                if (p < 0 && errno != EINTR) {
                    st = -1;
                    break;
                }
            }
            // Whatever the worker started and left: reap the zombies, then
            // see whether any process is still alive below the reaper.
            while (waitpid(-1, nullptr, WNOHANG) > 0) {
            }
            siginfo_t alive{};
            int left = waitid(P_ALL, 0, &alive, WEXITED | WNOHANG | WNOWAIT) == 0 ? 1 : 0;
            if (!isolated) left = KillAllChildren() > 0 ? 1 : 0;
            const int report[2] = {st, left};
            WriteAll(status[1], report, sizeof report);
            _exit(0);
        }
        close(msg[1]), close(out[1]), close(status[1]);
        waitpid(reaper, nullptr, 0);
        _exit(0);
    }
    close(msg[1]), close(out[1]), close(status[1]), close(info[1]);
    if (keeper < 0) {
        close(msg[0]), close(out[0]), close(status[0]), close(info[0]);
        std::filesystem::remove(dir);
        return r;
    }
    r.bStarted = true;
    char mode = 0;
    if (read(info[0], &mode, 1) != 1) mode = 'G';
    close(info[0]);
    m_sIsolation = mode == 'N' ? "PID and network namespaces" : "a process group";

    timespec start;
    clock_gettime(CLOCK_MONOTONIC, &start);
    bool msgOpen = true, outOpen = true;
    while (msgOpen || outOpen) {
        timespec now;
        clock_gettime(CLOCK_MONOTONIC, &now);
        const double left = m_limits.nTimeoutSeconds - (now.tv_sec - start.tv_sec) - (now.tv_nsec - start.tv_nsec) * 1e-9;
        if (left <= 0) {
            r.bTimedOut = true;
            break;
        }
        pollfd p[2] = {{msgOpen ? msg[0] : -1, POLLIN, 0}, {outOpen ? out[0] : -1, POLLIN, 0}};
        if (poll(p, 2, static_cast<int>(left * 1000) + 1) <= 0) continue;
        char buf[4096];
        if (p[0].revents != 0) {
            const ssize_t n = read(msg[0], buf, sizeof buf);
            if (n <= 0) msgOpen = false;
            else if (r.sMessages.size() < (size_t(1) << 20)) r.sMessages.append(buf, static_cast<size_t>(n));
        }
        if (p[1].revents != 0) {
            const ssize_t n = read(out[0], buf, sizeof buf);
            if (n <= 0) outOpen = false;
            else {
                r.nOutputBytes += static_cast<size_t>(n);
                const size_t room = m_limits.nOutputCap - std::min(m_limits.nOutputCap, r.sOutput.size());
                r.sOutput.append(buf, std::min(room, static_cast<size_t>(n)));
            }
        }
    }
    close(msg[0]), close(out[0]);
    int report[2] = {-1, 0};
    if (!r.bTimedOut) {
        // Both pipes at end: the worker is gone, and the reaper writes its
        // status before it ends.
        if (read(status[0], report, sizeof report) != static_cast<ssize_t>(sizeof report)) report[0] = -1;
    }
    const int st = report[0];
    r.bLeftProcesses = report[1] != 0;
    close(status[0]);
    kill(-keeper, SIGKILL);
    kill(keeper, SIGKILL);
    waitpid(keeper, nullptr, 0);
    KillAllChildren();
    std::error_code ignored;
    std::filesystem::remove_all(dir, ignored);
    if (!r.bTimedOut && st != -1) {
        r.bSignaled = WIFSIGNALED(st);
        r.nSignal = r.bSignaled ? WTERMSIG(st) : 0;
        r.nExitStatus = WIFEXITED(st) ? WEXITSTATUS(st) : 0;
    }
    return r;
}

}  // namespace amihost
