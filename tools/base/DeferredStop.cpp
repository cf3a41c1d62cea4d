// DeferredStop: the handler and the writers meet on two lock-free atomics
// (safe in a signal handler). The handler records the stop before it looks
// at the count of writes, and a writer lowers the count before it looks for
// a stop: whichever comes second sees the other, so no stop is lost.
#include "tools/base/DeferredStop.h"

#include <signal.h>
#include <sys/types.h>

#include <atomic>
#include <initializer_list>

namespace amihost {

namespace {

std::atomic<int> g_writes{0};
std::atomic<int> g_stop{0};
std::atomic<int> g_child{0};

void StopNow(int sig) {
    signal(sig, SIG_DFL);
    raise(sig);
}

void OnStop(int sig) {
    g_stop.store(sig);
    if (g_writes.load() == 0) StopNow(sig);
}

void PassOn(int sig) {
    const int child = g_child.load();
    if (child > 0)
        kill(child, sig);
    else
        StopNow(sig);
}

void Handle(void (*handler)(int), bool onlyDefault) {
    for (int sig : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction old {};
        if (sigaction(sig, nullptr, &old) != 0 || (onlyDefault && old.sa_handler != SIG_DFL) ||
            old.sa_handler == SIG_IGN)
            continue;
        struct sigaction act {};
        act.sa_handler = handler;
        sigemptyset(&act.sa_mask);
        act.sa_flags = SA_RESTART;
        sigaction(sig, &act, nullptr);
    }
}

}  // namespace

void InstallDeferredStop() { Handle(OnStop, true); }

void ForwardStopsTo(int child) {
    g_child.store(child);
    Handle(PassOn, false);
}

WholeFileWrite::WholeFileWrite() { g_writes.fetch_add(1); }

WholeFileWrite::~WholeFileWrite() {
    if (g_writes.fetch_sub(1) == 1) {
        const int sig = g_stop.load();
        if (sig != 0) StopNow(sig);
    }
}

}  // namespace amihost
