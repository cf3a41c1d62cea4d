// Test helpers: run code in a forked child with its standard output captured
// (for the paths that abort the process), and capture the diagnostics log.
#pragma once

#include "amiparams/IbisParser/errlog.h"

#include <csignal>
#include <cstdio>
#include <functional>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace amiparams_test {

struct ChildOutcome {
    bool bAborted = false;  // ended by SIGABRT
    std::string sStdout;
};

// Runs fn in a child process whose standard output goes to a pipe.
inline ChildOutcome RunInChild(const std::function<void()>& fn) {
    int fds[2];
    if (pipe(fds) != 0) return {};
    fflush(stdout);
    fflush(stderr);
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(fds[1], STDOUT_FILENO);
        close(fds[0]);
        close(fds[1]);
        fn();
        fflush(stdout);
        _exit(0);
    }
    close(fds[1]);
    ChildOutcome outcome;
    char buffer[512];
    for (ssize_t n; (n = read(fds[0], buffer, sizeof buffer)) > 0;) outcome.sStdout.append(buffer, size_t(n));
    close(fds[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    outcome.bAborted = WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT;
    return outcome;
}

// Runs fn with the log redirected to a temporary file and returns what it
// printed there.
inline std::string CaptureLog(const std::function<void()>& fn) {
    FILE* previous = gpLogFile;
    FILE* f = tmpfile();
    if (f == nullptr) return "<tmpfile failed>";
    ERRLOG_SetOutputFile(f);
    fn();
    ERRLOG_SetOutputFile(previous);
    std::string text(static_cast<size_t>(ftell(f)), '\0');
    rewind(f);
    text.resize(fread(&text[0], 1, text.size(), f));
    fclose(f);
    return text;
}

}  // namespace amiparams_test
