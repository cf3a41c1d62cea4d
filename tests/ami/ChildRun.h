// Test helper: runs a function in a forked child process, capturing its
// standard output and standard error, and reports how the child ended. For
// the paths that end the process (the deliberate abort) or may take it down
// (fuzz inputs, memory exhaustion).
#pragma once

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <string>

namespace ami_test {

struct ChildResult {
    bool bAborted = false;  // ended by SIGABRT
    int nExit = -1;         // exit status, when it exited
    std::string sStdout;
    std::string sStderr;
};

// fn's return value becomes the child's exit status.
inline ChildResult InChild(const std::function<int()>& fn) {
    ChildResult r;
    int fds[2];
    FILE* errors = tmpfile();  // a file, so that a chatty child never blocks
    if (errors == nullptr || pipe(fds) != 0) return r;
    fflush(stdout);
    fflush(stderr);
    const pid_t pid = fork();
    if (pid == 0) {
        close(fds[0]);
        dup2(fds[1], STDOUT_FILENO);
        dup2(fileno(errors), STDERR_FILENO);
        close(fds[1]);
        const int code = fn();
        fflush(stdout);
        fflush(stderr);
        _exit(code);
    }
    close(fds[1]);
    char buffer[256];
    ssize_t n;
    while ((n = read(fds[0], buffer, sizeof buffer)) > 0) r.sStdout.append(buffer, static_cast<size_t>(n));
    close(fds[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    r.bAborted = WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT;
    if (WIFEXITED(status)) r.nExit = WEXITSTATUS(status);
    rewind(errors);
    for (int c; (c = fgetc(errors)) != EOF;) r.sStderr.push_back(static_cast<char>(c));
    fclose(errors);
    return r;
}

}  // namespace ami_test
