// Test helpers: run code in a forked child process and report how it ended
// with what it printed (for the paths that end the process on purpose, the
// abort on a broken precondition, or may take it down: fuzz inputs, memory
// exhaustion), and capture what code writes to a caller's FILE* stream.
#pragma once

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <type_traits>

namespace kv2_test {

struct ChildResult {
    bool bAborted = false;  // ended by SIGABRT
    int nExit = -1;         // exit status, when it exited
    std::string sStdout, sStderr;
};

// Everything written to a temporary file, which is then closed.
inline std::string ReadBack(FILE* f) {
    std::string text;
    rewind(f);
    for (int c; (c = fgetc(f)) != EOF;) text.push_back(static_cast<char>(c));
    fclose(f);
    return text;
}

// fn's return value (0 when it returns nothing) becomes the child's exit status.
template <typename Fn>
ChildResult RunInChild(Fn&& fn) {
    ChildResult r;
    FILE* out = tmpfile();  // files, so that a chatty child never blocks
    FILE* err = tmpfile();
    if (out == nullptr || err == nullptr) return r;
    fflush(stdout), fflush(stderr);
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(fileno(out), STDOUT_FILENO), dup2(fileno(err), STDERR_FILENO);
        int code = 0;
        if constexpr (std::is_void_v<decltype(fn())>) fn(); else code = fn();
        fflush(stdout), fflush(stderr);
        _exit(code);
    }
    int status = 0;
    if (pid > 0 && waitpid(pid, &status, 0) == pid) {
        r.bAborted = WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT;
        if (WIFEXITED(status)) r.nExit = WEXITSTATUS(status);
    }
    r.sStdout = ReadBack(out), r.sStderr = ReadBack(err);
    return r;
}

// Runs fn with `stream` pointing at a temporary file; returns what fn wrote there.
template <typename Fn>
std::string CaptureStream(FILE*& stream, Fn&& fn) {
    FILE* const previous = stream;
    FILE* f = tmpfile();
    if (f == nullptr) return "<tmpfile failed>";
    stream = f;
    fn();
    stream = previous;
    return ReadBack(f);
}

}  // namespace kv2_test
