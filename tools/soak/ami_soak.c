/* ami_soak: drives KV2_RX_x64.so the way a long simulation does, for the
 * memory checks that are too slow or too coarse for unit tests.
 *
 *   ami_soak LIBRARY cycles N SAMPLES BLOCK
 *     N whole sessions (AMI_Init, SAMPLES samples in BLOCK-sized
 *     AMI_GetWave calls, AMI_Close), rotating through every equalizer
 *     setting and every way a session can fail: missing parameters, a
 *     failing Setup, a failing Initialize, a failing Run, no parameter text.
 *     Meant to run under valgrind memcheck.
 *
 *   ami_soak LIBRARY long SAMPLES BLOCK
 *     One instance streams SAMPLES samples; the resident set size is
 *     sampled twenty times and must not grow by more than 1 MiB after the
 *     first tenth. Prints the RSS trace and the throughput.
 *
 * Exit status 0 when every call returned what it should (and, for "long",
 * the RSS stayed flat), 1 otherwise, 2 on bad usage. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

typedef long (*InitFn)(double*, long, long, double, double, char*, char**, void**, char**);
typedef long (*GetWaveFn)(double*, long, double*, char**, void*);
typedef long (*CloseFn)(void*);

enum { kKinds = 9 };  /* kinds of session, see Session() */

static InitFn ami_init;
static GetWaveFn ami_get_wave;
static CloseFn ami_close;

/* Resident set size in KiB, from /proc/self/status. */
static long ResidentKiB(void) {
    FILE* f = fopen("/proc/self/status", "r");
    char line[256];
    long kib = -1;
    while (f != NULL && fgets(line, sizeof line, f) != NULL)
        if (strncmp(line, "VmRSS:", 6) == 0) kib = strtol(line + 6, NULL, 10);
    if (f != NULL) fclose(f);
    return kib;
}

static void Fill(double* wave, long n, long offset) {
    for (long i = 0; i < n; ++i) wave[i] = ((offset + i) / 32) % 3 == 0 ? -0.5 : 0.5;
}

/* One session of kind `cycle`; returns 1 when every result is as expected. */
static int Session(long cycle, long samples, long block, double* wave) {
    static const char* const kinds[] = {
        "(KV2_RX (SampleRate 1e12) (EQ %d) (SamplesPerBit 32) (Corner \"Typ\"))",
        "(KV2_RX(SampleRate 1e12)(EQ %d)(SamplesPerBit 64)(Corner \"Fast\"))",
        "(KV2_RX (Other %d))",                                           /* all four missing */
        "(KV2_RX (SampleRate 0) (EQ %d) (SamplesPerBit 32))",            /* Setup fails */
        "(KV2_RX (SampleRate nan) (EQ %d) (SamplesPerBit 32))",          /* Initialize fails */
        "(KV2_RX (SampleRate 1e300) (EQ %d) (SamplesPerBit 32))",        /* NaN design */
        "(KV2_RX (EQ 16) (SamplesPerBit 32) (X %d))",                    /* every Run fails */
        "(KV2_RX (SamplesPerBit 15) (EQ %d))",                           /* Setup fails */
        NULL,                                                            /* no text at all */
    };
    static const long initResult[] = {1, 1, 1, 0, 0, 1, 1, 0, 0};
    static const long waveResult[] = {1, 1, 1, 0, 1, 1, 0, 0, 0};
    const int kind = (int)(cycle % kKinds);
    char text[160];
    char* parameters = NULL;
    if (kinds[kind] != NULL) {
        snprintf(text, sizeof text, kinds[kind], (int)(cycle % 16));
        parameters = text;
    }
    void* handle = NULL;
    char* msg = NULL;
    int ok = ami_init(NULL, 0, 0, 1e-12, 32e-12, parameters, NULL, &handle, &msg) == initResult[kind];
    ok = ok && handle != NULL;
    if (msg != NULL) ok = ok && strlen(msg) < 4096;
    double clock = 0.0;
    for (long at = 0; at < samples; at += block) {
        const long n = samples - at < block ? samples - at : block;
        Fill(wave, n, at);
        ok = ami_get_wave(wave, n, &clock, NULL, handle) == waveResult[kind] && ok;
    }
    return ami_close(handle) == 1 && ok;
}

int main(int argc, char** argv) {
    const int cycles = argc == 6 && strcmp(argv[2], "cycles") == 0;
    const int longRun = argc == 5 && strcmp(argv[2], "long") == 0;
    if (!cycles && !longRun) {
        fprintf(stderr, "usage: %s LIBRARY cycles N SAMPLES BLOCK | %s LIBRARY long SAMPLES BLOCK\n", argv[0], argv[0]);
        return 2;
    }
    void* lib = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (lib == NULL) {
        fprintf(stderr, "dlopen: %s\n", dlerror());
        return 1;
    }
    ami_init = (InitFn)dlsym(lib, "AMI_Init");
    ami_get_wave = (GetWaveFn)dlsym(lib, "AMI_GetWave");
    ami_close = (CloseFn)dlsym(lib, "AMI_Close");
    if (!ami_init || !ami_get_wave || !ami_close) return 1;

    int ok = 1;
    if (cycles) {
        const long n = atol(argv[3]), samples = atol(argv[4]), block = atol(argv[5]);
        double* wave = malloc((size_t)block * sizeof(double));
        for (long c = 0; c < n && wave != NULL; ++c) {
            if (!Session(c, samples, block, wave)) {
                fprintf(stderr, "session %ld (kind %ld) did not behave\n", c, c % kKinds);
                ok = 0;
            }
        }
        free(wave);
        printf("%ld sessions of %ld samples: %s\n", n, samples, ok ? "ok" : "FAILED");
    } else {
        const long samples = atol(argv[3]), block = atol(argv[4]);
        double* wave = malloc((size_t)block * sizeof(double));
        char text[] = "(KV2_RX (SampleRate 1e12) (EQ 9) (SamplesPerBit 32) (Corner \"Typ\"))";
        void* handle = NULL;
        char* msg = NULL;
        ok = wave != NULL && ami_init(NULL, 0, 0, 1e-12, 32e-12, text, NULL, &handle, &msg) == 1;
        const long step = samples / 20;
        long baseline = -1, worst = 0, next = step;
        double clock = 0.0;
        struct timespec t0, t1;
        clock_gettime(CLOCK_MONOTONIC, &t0);
        for (long at = 0; ok && at < samples; at += block) {
            const long n = samples - at < block ? samples - at : block;
            Fill(wave, n, at);
            ok = ami_get_wave(wave, n, &clock, NULL, handle) == 1;
            if (at + n >= next || at + n == samples) {
                const long rss = ResidentKiB();
                printf("%12ld samples  RSS %8ld KiB\n", at + n, rss);
                if (baseline < 0 && at + n >= samples / 10) baseline = rss;
                if (baseline >= 0 && rss - baseline > worst) worst = rss - baseline;
                next += step;
            }
        }
        clock_gettime(CLOCK_MONOTONIC, &t1);
        const double seconds = (double)(t1.tv_sec - t0.tv_sec) + 1e-9 * (double)(t1.tv_nsec - t0.tv_nsec);
        ok = ami_close(handle) == 1 && ok;
        free(wave);
        printf("%ld samples in %.1f s (%.1f ns/sample); RSS grew %ld KiB after the first tenth\n", samples,
               seconds, 1e9 * seconds / (double)samples, worst);
        if (worst > 1024) {
            fprintf(stderr, "resident memory grew by %ld KiB\n", worst);
            ok = 0;
        }
    }
    dlclose(lib);
    return ok ? 0 : 1;
}
