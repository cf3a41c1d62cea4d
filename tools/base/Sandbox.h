// Sandbox: runs a piece of this program in a child process that cannot
// outlive it or take more than it is given. Used to exercise a model library
// that came with a kit: its constructors and entry points are code we did not
// write and must treat as hostile.
//
// The work runs three processes down: a keeper that detaches into its own
// session and, where the kernel allows it, into new PID, user and network
// namespaces; a reaper that is the first process of the new PID namespace;
// and the worker, with its resource limits, an empty working directory,
// /dev/null as input and its output captured. When the worker ends, the
// reaper ends and the kernel kills everything left in the namespace (a
// daemon the library forked and detached included); at the time limit the
// keeper is killed, and with it the reaper. Where namespaces are refused the
// process group is killed and this process, made a child subreaper, kills and
// reaps every orphan that is left, until none is.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace amihost {

struct SandboxLimits {
    uint64_t nAddressSpaceBytes = uint64_t(2) << 30;  // 0: no limit
    uint64_t nFileSizeBytes = uint64_t(64) << 20;
    int nTimeoutSeconds = 60;  // wall clock; the CPU-time limit is the same
    int nExtraProcesses = 32;  // beyond those the user already runs
    size_t nOutputCap = 4096;  // bytes of the worker's output kept
    bool bNamespaces = true;   // false: the process group and subreaper alone
};

struct SandboxResult {
    std::string sMessages;  // what the worker wrote on its message pipe
    std::string sOutput;    // its stdout and stderr, at most nOutputCap bytes
    size_t nOutputBytes = 0;  // all it wrote there
    bool bTimedOut = false;
    bool bStarted = false;    // false: no child could be made
    bool bLeftProcesses = false;  // the worker left processes running (killed since)
    bool bSignaled = false;
    int nSignal = 0;
    int nExitStatus = 0;
};

class Sandbox {
public:
    explicit Sandbox(const SandboxLimits& limits) : m_limits(limits) {}

    // Runs work(messageFd) in the worker; its return value is the worker's
    // exit status.
    SandboxResult Run(const std::function<int(int)>& work) const;

    // How the last Run was isolated, for the report: "PID and network
    // namespaces" or "a process group" (namespaces refused by the kernel).
    const std::string& Isolation() const { return m_sIsolation; }

    // "address space 2048 MiB, CPU time 60 s, files up to 64 MiB, 32 more
    // processes, an empty working directory, no input"
    std::string LimitsText() const;

    // Kills and reaps every child this process still has, repeating while
    // orphans keep being reparented to it; returns how many it killed.
    static int KillAllChildren();

private:
    SandboxLimits m_limits;
    mutable std::string m_sIsolation;
};

}  // namespace amihost
