// DeferredStop: a stop (Ctrl-C, SIGTERM, SIGHUP) that lands while a result
// is being written aside and renamed takes effect once every such write in
// the process has finished, so that a stopped run leaves whole files and no
// half-written ones. Outside those writes a stop acts at once, as it would
// without the handlers (the process still dies of the signal).
#pragma once

namespace amihost {

// Installs the handlers for the stop signals whose action is the default
// (one that the parent set to be ignored stays ignored).
void InstallDeferredStop();

// In a process that only waits for a child doing the writing: a stop is
// passed on to the child, which ends after its writes, instead of ending
// this process (and the child with it) at once. Once the child is reaped,
// ForwardStopsTo(0): a stop then ends this process at once (its pid may be
// another process's by then).
void ForwardStopsTo(int child);

// Held while one whole file is written and renamed; any number at a time,
// from any thread.
class WholeFileWrite {
public:
    WholeFileWrite();
    ~WholeFileWrite();
    WholeFileWrite(const WholeFileWrite&) = delete;
    WholeFileWrite& operator=(const WholeFileWrite&) = delete;
};

}  // namespace amihost
