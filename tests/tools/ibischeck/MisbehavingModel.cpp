// A tiny AMI model that misbehaves in one chosen way (compile definition):
// MISBEHAVE_CRASH_IN_INIT, MISBEHAVE_EXIT_IN_INIT, MISBEHAVE_NO_CLOSE, MISBEHAVE_INIT_FAILS,
// MISBEHAVE_NO_SETTLING, MISBEHAVE_HANG_IN_GETWAVE, MISBEHAVE_NAN_OUTPUT,
// MISBEHAVE_ESCAPES (a message with a terminal escape); none of them: a model
// whose output is a first-order low-pass of its input, which settles.
#include <unistd.h>

#include <cstdlib>

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
