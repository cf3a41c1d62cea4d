// A tiny AMI model that misbehaves in one chosen way (compile definition):
// MISBEHAVE_CRASH_IN_INIT, MISBEHAVE_EXIT_IN_INIT, MISBEHAVE_NO_CLOSE, MISBEHAVE_INIT_FAILS,
// MISBEHAVE_NO_SETTLING, MISBEHAVE_HANG_IN_GETWAVE, MISBEHAVE_NAN_OUTPUT,
// MISBEHAVE_ESCAPES (a message with a terminal escape), MISBEHAVE_DAEMON (leaves
// a detached grandchild named kv2_orphan behind), MISBEHAVE_DAEMON_HANG (the
// same, then never returns), MISBEHAVE_HOG (touches 1 GiB),
// MISBEHAVE_WRITER (prints, then writes 8 MiB to big.bin and to
// $KV2_TEST_WRITE_PATH); none of them: a model whose output is a first-order
// low-pass of its input, which settles.
#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

[[maybe_unused]] void LeaveOrphan() {
    if (fork() != 0) return;
    setsid();
    if (fork() != 0) _exit(0);
    prctl(PR_SET_NAME, "kv2_orphan");
    for (;;) pause();
}

[[maybe_unused]] void WriteMegabytes(const char* path, int megabytes) {
    const int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC, 0644);
    std::vector<char> block(1 << 20, 'x');
    for (int i = 0; fd >= 0 && i < megabytes; ++i)
        if (write(fd, block.data(), block.size()) < 0) break;
    if (fd >= 0) close(fd);
}

}  // namespace

[[maybe_unused]] static char* volatile g_hog;

extern "C" {

#ifdef MISBEHAVE_ESCAPES
static char g_message[] = "\x1b[2Jfirst-order\tlow-pass";
#else
static char g_message[] = "first-order low-pass";
#endif

long AMI_Init(double*, long, long, double, double, char*, char** out, void** handle, char** msg) {
#ifdef MISBEHAVE_CRASH_IN_INIT
    abort();  // rather than a fault, which sanitizer builds turn into an exit
#endif
#ifdef MISBEHAVE_EXIT_IN_INIT
    exit(3);
#endif
#if defined(MISBEHAVE_DAEMON) || defined(MISBEHAVE_DAEMON_HANG)
    LeaveOrphan();
#endif
#ifdef MISBEHAVE_DAEMON_HANG
    for (;;) pause();
#endif
#ifdef MISBEHAVE_HOG
    const size_t size = size_t(1) << 30;
    char* p = static_cast<char*>(malloc(size));
    memset(p, 1, size);  // a null pointer when the address space is limited: the crash is the point
    g_hog = p;
#endif
#ifdef MISBEHAVE_WRITER
    printf("writing \x1b[31mbig.bin\n");
    fflush(stdout);
    if (const char* outside = getenv("KV2_TEST_WRITE_PATH")) WriteMegabytes(outside, 8);
    WriteMegabytes("big.bin", 8);
#endif
    *out = nullptr;
    *msg = g_message;
    static int state;
    *handle = &state;
#ifdef MISBEHAVE_INIT_FAILS
    return 0;
#else
    return 1;
#endif
}

long AMI_GetWave(double* wave, long size, double*, char**, void*) {
#ifdef MISBEHAVE_HANG_IN_GETWAVE
    for (;;) pause();
#endif
#ifdef MISBEHAVE_NO_SETTLING
    for (long i = 0; i < size; ++i) wave[i] = (i / 64) % 2 ? wave[i] : -wave[i];
#else
    double y = 0;
    for (long i = 0; i < size; ++i) wave[i] = y += (wave[i] - y) / 100;
#endif
#ifdef MISBEHAVE_NAN_OUTPUT
    if (size > 100) wave[100] = 0.0 / 0.0;
#endif
    return 1;
}

#ifndef MISBEHAVE_NO_CLOSE
long AMI_Close(void*) { return 1; }
#endif
}
