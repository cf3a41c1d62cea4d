// DeferredStop: a stop waits for every whole-file write in progress, then
// ends the process by the same signal; outside writes it acts at once, and a
// stop the parent set to be ignored stays ignored.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "tools/base/DeferredStop.h"

namespace {

// Runs `body` in a child process with the handlers installed; returns what
// the child wrote to the pipe (one letter per step it got through) and how
// it ended.
struct Ending {
    std::string steps;
    int signal = 0;  // 0: exited
    int code = -1;
};

template <typename Body>
Ending InChild(Body body, bool ignoreStop = false) {
    int fds[2];
    EXPECT_EQ(pipe(fds), 0);
    const pid_t child = fork();
    if (child == 0) {
        close(fds[0]);
        if (ignoreStop) signal(SIGINT, SIG_IGN);
        amihost::InstallDeferredStop();
        body([&](char step) { (void)!write(fds[1], &step, 1); });
        _exit(0);
    }
    close(fds[1]);
    Ending e;
    char c;
    while (read(fds[0], &c, 1) == 1) e.steps += c;
    close(fds[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFSIGNALED(status)) e.signal = WTERMSIG(status);
    if (WIFEXITED(status)) e.code = WEXITSTATUS(status);
    return e;
}

}  // namespace

TEST(DeferredStop, AStopWaitsForEveryWriteInProgressThenEndsTheProcessBySignal) {
    // No write in progress: at once.
    Ending e = InChild([](auto step) {
        raise(SIGTERM);
        step('a');
    });
    EXPECT_EQ(e.steps, "");
    EXPECT_EQ(e.signal, SIGTERM);

    // During a write: after it, not before.
    e = InChild([](auto step) {
        {
            const amihost::WholeFileWrite w;
            raise(SIGINT);
            step('a');
        }
        step('b');
    });
    EXPECT_EQ(e.steps, "a");
    EXPECT_EQ(e.signal, SIGINT);

    // Two writes overlapping: after the last of them.
    e = InChild([](auto step) {
        auto* first = new amihost::WholeFileWrite;
        {
            const amihost::WholeFileWrite second;
            raise(SIGHUP);
            delete first;
            step('a');
        }
        step('b');
    });
    EXPECT_EQ(e.steps, "a");
    EXPECT_EQ(e.signal, SIGHUP);

    // Ignored by the parent: still ignored, the run goes on.
    e = InChild(
        [](auto step) {
            {
                const amihost::WholeFileWrite w;
                raise(SIGINT);
            }
            raise(SIGINT);
            step('a');
        },
        true);
    EXPECT_EQ(e.steps, "a");
    EXPECT_EQ(e.signal, 0);
    EXPECT_EQ(e.code, 0);
}
