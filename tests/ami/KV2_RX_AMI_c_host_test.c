/* A simulator host written in plain C, with no C++ runtime of its own: it
 * loads KV2_RX_x64.so with RTLD_NOW | RTLD_GLOBAL, then two renamed copies
 * side by side, one with RTLD_LOCAL and one with RTLD_GLOBAL, interleaving
 * their instances and unloading one while the other keeps running. Every
 * waveform must match, bit for bit, the one the single load produced.
 *
 * usage: KV2_RX_AMI_c_host_test LIBRARY static-runtime|shared-runtime
 * ("static-runtime": the library must carry its C++ runtime privately, so
 * loading it must neither pull in libstdc++ nor publish C++ symbols). */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

typedef long (*InitFn)(double*, long, long, double, double, char*, char**, void**, char**);
typedef long (*GetWaveFn)(double*, long, double*, char**, void*);
typedef long (*CloseFn)(void*);

enum { kSamples = 6000, kBlock = 700 };

struct Lib { void* so; InitFn init; GetWaveFn getWave; CloseFn close; };
struct Run { const struct Lib* lib; void* handle; double wave[kSamples]; };

static int failures = 0;

/* Present only under LeakSanitizer: runs the leak check on demand. */
extern void __lsan_do_leak_check(void) __attribute__((weak));

#define CHECK(cond, what) \
    do { if (!(cond)) fprintf(stderr, "FAILED line %d: %s\n", __LINE__, what), ++failures; } while (0)

static int Load(struct Lib* lib, const char* path, int mode) {
    lib->so = dlopen(path, mode);
    if (lib->so == NULL) return fprintf(stderr, "dlopen %s: %s\n", path, dlerror()), ++failures, 0;
    lib->init = (InitFn)dlsym(lib->so, "AMI_Init");
    lib->getWave = (GetWaveFn)dlsym(lib->so, "AMI_GetWave");
    lib->close = (CloseFn)dlsym(lib->so, "AMI_Close");
    CHECK(lib->init && lib->getWave && lib->close, "entry points missing");
    return lib->init && lib->getWave && lib->close;
}

/* AMI_Init for setting eq on NRZ levels from a fixed linear congruential sequence. */
static void Open(struct Run* run, const struct Lib* lib, int eq) {
    char text[128], *msg = NULL;
    snprintf(text, sizeof text, "(KV2_RX (SampleRate 1e12) (EQ %d) (SamplesPerBit 32) (Corner \"Typ\"))", eq);
    unsigned state = 12345u;
    for (int i = 0; i < kSamples; ++i) {
        if (i % 32 == 0) state = state * 1103515245u + 12345u;
        run->wave[i] = (state >> 16) & 1 ? 0.5 : -0.5;
    }
    run->lib = lib;
    CHECK(lib->init(NULL, 0, 0, 1e-12, 32e-12, text, NULL, &run->handle, &msg) == 1, "AMI_Init");
}

/* Samples [from, to) in calls of kBlock; closes the instance at the end of the waveform. */
static void Stream(struct Run* run, int from, int to) {
    double clock = 0.0;
    for (int at = from; at < to; at += kBlock)
        CHECK(run->lib->getWave(run->wave + at, to - at < kBlock ? to - at : kBlock, &clock, NULL, run->handle) == 1,
              "AMI_GetWave");
    if (to == kSamples) CHECK(run->lib->close(run->handle) == 1, "AMI_Close");
}

static struct Run solo[2], a, b;

int main(int argc, char** argv) {
    if (argc != 3) return fprintf(stderr, "usage: %s LIBRARY static-runtime|shared-runtime\n", argv[0]), 2;
    struct Lib la, lb;
    if (!Load(&la, argv[1], RTLD_NOW | RTLD_GLOBAL)) return 1;  /* the global scope shows what leaks */
    if (strcmp(argv[2], "static-runtime") == 0) {
        CHECK(dlopen("libstdc++.so.6", RTLD_NOW | RTLD_NOLOAD) == NULL, "loading the model pulled in libstdc++");
        CHECK(dlsym(RTLD_DEFAULT, "_ZSt4cerr") == NULL, "std::cerr is visible to the host");
        CHECK(dlsym(RTLD_DEFAULT, "__cxa_throw") == NULL, "__cxa_throw is visible to the host");
    }
    Open(&solo[0], &la, 3), Stream(&solo[0], 0, kSamples);
    Open(&solo[1], &la, 12), Stream(&solo[1], 0, kSamples);
    CHECK(dlclose(la.so) == 0, "dlclose");
    CHECK(memcmp(solo[0].wave, solo[1].wave, sizeof a.wave) != 0, "EQ 3 and EQ 12 gave the same waveform");

    char dir[] = "/tmp/kv2_c_host_XXXXXX", pathA[64], pathB[64], command[256];
    if (mkdtemp(dir) == NULL) return perror("mkdtemp"), 1;
    snprintf(pathA, sizeof pathA, "%s/KV2_RX_x64_a.so", dir);
    snprintf(pathB, sizeof pathB, "%s/KV2_RX_x64_b.so", dir);
    snprintf(command, sizeof command, "cp '%s' '%s' && cp '%s' '%s'", argv[1], pathA, argv[1], pathB);
    CHECK(system(command) == 0, "copying the library");
    if (Load(&la, pathA, RTLD_NOW | RTLD_LOCAL) && Load(&lb, pathB, RTLD_NOW | RTLD_GLOBAL)) {
        CHECK(la.so != lb.so && la.init != lb.init, "the copies share one handle or one AMI_Init");
        Open(&a, &la, 3), Open(&b, &lb, 12);
        for (int at = 0, half = kSamples / 2; at < half; at += kBlock) {
            Stream(&a, at, at + kBlock < half ? at + kBlock : half);
            Stream(&b, at, at + kBlock < half ? at + kBlock : half);
        }
        Stream(&a, kSamples / 2, kSamples);
        CHECK(dlclose(la.so) == 0, "dlclose a");
        Stream(&b, kSamples / 2, kSamples);
        CHECK(memcmp(a.wave, solo[0].wave, sizeof a.wave) == 0, "copy a, interleaved, differs from the solo run");
        CHECK(memcmp(b.wave, solo[1].wave, sizeof b.wave) == 0, "copy b, run on after a was unloaded, differs");
        CHECK(dlclose(lb.so) == 0, "dlclose b");
    }
    /* Leaks are reported with the copies' symbols, so check before they go. */
    if (__lsan_do_leak_check) __lsan_do_leak_check();
    unlink(pathA), unlink(pathB), rmdir(dir);
    if (failures == 0) printf("C host: all loads agree bit for bit\n");
    return failures == 0 ? 0 : 1;
}
