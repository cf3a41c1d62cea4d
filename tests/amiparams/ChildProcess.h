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
    int nExitCode = -1;     // when it exited instead
    std::string sStdout;
};

// Runs fn in a child process whose standard output goes to a pipe.
inline ChildOutcome RunInChild(const std::function<void()>& fn) {
    ChildOutcome outcome;
    int fds[2];
    if (pipe(fds) != 0) return outcome;
    fflush(stdout);
    fflush(stderr);
    pid_t pid = fork();
    if (pid == 0) {
        close(fds[0]);
        dup2(fds[1], STDOUT_FILENO);
        close(fds[1]);
        fn();
        fflush(stdout);
        _exit(0);
    }
    close(fds[1]);
    char buffer[512];
    ssize_t n;
    while ((n = read(fds[0], buffer, sizeof buffer)) > 0) outcome.sStdout.append(buffer, static_cast<size_t>(n));
    close(fds[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    outcome.bAborted = WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT;
    if (WIFEXITED(status)) outcome.nExitCode = WEXITSTATUS(status);
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
    fflush(f);
    std::string text;
    rewind(f);
    int c;
    while ((c = fgetc(f)) != EOF) text.push_back(static_cast<char>(c));
    ERRLOG_SetOutputFile(previous);
    fclose(f);
    return text;
}

}  // namespace amiparams_test
