/* A simulator host written in plain C, with no C++ runtime of its own: it
 * loads KV2_RX_x64.so with RTLD_NOW | RTLD_LOCAL and with RTLD_NOW |
 * RTLD_GLOBAL, and loads two renamed copies side by side, interleaving
 * their instances and unloading one while the other keeps running. Every
 * waveform must match, bit for bit, the one a single solo load produced.
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

#define CHECK(cond, ...)                                                                                  \
    do {                                                                                                  \
        if (!(cond)) fprintf(stderr, "FAILED %s:%d: ", __FILE__, __LINE__), fprintf(stderr, __VA_ARGS__), \
                     fputc('\n', stderr), ++failures;                                                      \
    } while (0)

static int Load(struct Lib* lib, const char* path, int mode) {
    memset(lib, 0, sizeof *lib);
    lib->so = dlopen(path, mode);
    CHECK(lib->so != NULL, "dlopen %s: %s", path, dlerror());
    if (lib->so == NULL) return 0;
    lib->init = (InitFn)dlsym(lib->so, "AMI_Init");
    lib->getWave = (GetWaveFn)dlsym(lib->so, "AMI_GetWave");
    lib->close = (CloseFn)dlsym(lib->so, "AMI_Close");
    CHECK(lib->init && lib->getWave && lib->close, "entry points missing in %s", path);
    return lib->init && lib->getWave && lib->close;
}

static void Unload(struct Lib* lib) { CHECK(dlclose(lib->so) == 0, "dlclose: %s", dlerror()); }

/* AMI_Init for setting eq on NRZ levels from a fixed linear congruential sequence. */
static void Open(struct Run* run, const struct Lib* lib, int eq) {
    char text[128];
    snprintf(text, sizeof text, "(KV2_RX (SampleRate 1e12) (EQ %d) (SamplesPerBit 32) (Corner \"Typ\"))", eq);
    unsigned state = 12345u;
    for (int i = 0; i < kSamples; ++i) {
        if (i % 32 == 0) state = state * 1103515245u + 12345u;
        run->wave[i] = (state >> 16) & 1 ? 0.5 : -0.5;
    }
    char* msg = NULL;
    run->lib = lib;
    CHECK(lib->init(NULL, 0, 0, 1e-12, 32e-12, text, NULL, &run->handle, &msg) == 1, "AMI_Init EQ %d", eq);
}

/* Samples [from, to) in calls of kBlock; closes the instance at the end of the waveform. */
static void Stream(struct Run* run, int from, int to) {
    double clock = 0.0;
    for (int at = from; at < to; at += kBlock) {
        const long n = to - at < kBlock ? to - at : kBlock;
        CHECK(run->lib->getWave(run->wave + at, n, &clock, NULL, run->handle) == 1, "AMI_GetWave at %d", at);
    }
    if (to == kSamples) CHECK(run->lib->close(run->handle) == 1, "AMI_Close");
}

static struct Run solo[2], a, b;

#define SAME(run, ref, what) CHECK(memcmp((run)->wave, (ref)->wave, sizeof (run)->wave) == 0, "%s differs", what)

int main(int argc, char** argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: %s LIBRARY static-runtime|shared-runtime\n", argv[0]);
        return 2;
    }
    const int privateRuntime = strcmp(argv[2], "static-runtime") == 0;
    struct Lib la, lb;
    for (int global = 0; global <= 1; ++global) {  /* solo runs of EQ 3 and 12, local then global */
        if (!Load(&la, argv[1], RTLD_NOW | (global ? RTLD_GLOBAL : RTLD_LOCAL))) return 1;
        if (privateRuntime) {
            CHECK(dlopen("libstdc++.so.6", RTLD_NOW | RTLD_NOLOAD) == NULL, "loading the model pulled in libstdc++");
            CHECK(dlsym(RTLD_DEFAULT, "_ZSt4cerr") == NULL, "std::cerr is visible to the host");
            CHECK(dlsym(RTLD_DEFAULT, "__cxa_throw") == NULL, "__cxa_throw is visible to the host");
        }
        Open(global ? &a : &solo[0], &la, 3), Stream(global ? &a : &solo[0], 0, kSamples);
        Open(global ? &b : &solo[1], &la, 12), Stream(global ? &b : &solo[1], 0, kSamples);
        Unload(&la);
    }
    SAME(&a, &solo[0], "RTLD_GLOBAL, EQ 3");
    SAME(&b, &solo[1], "RTLD_GLOBAL, EQ 12");
    CHECK(memcmp(solo[0].wave, solo[1].wave, sizeof a.wave) != 0, "EQ 3 and EQ 12 gave the same waveform");

    /* Two renamed copies at once: interleaved block by block for half the
     * waveform, then copy a finished and unloaded while copy b runs on. */
    char dir[] = "/tmp/kv2_c_host_XXXXXX", pathA[64], pathB[64], command[256];
    if (mkdtemp(dir) == NULL) return perror("mkdtemp"), 1;
    snprintf(pathA, sizeof pathA, "%s/KV2_RX_x64_a.so", dir);
    snprintf(pathB, sizeof pathB, "%s/KV2_RX_x64_b.so", dir);
    snprintf(command, sizeof command, "cp '%s' '%s' && cp '%s' '%s'", argv[1], pathA, argv[1], pathB);
    CHECK(system(command) == 0, "copying the library");
    for (int global = 0; global <= 1; ++global) {
        const int mode = RTLD_NOW | (global ? RTLD_GLOBAL : RTLD_LOCAL);
        if (!Load(&la, pathA, mode) || !Load(&lb, pathB, mode)) break;
        CHECK(la.so != lb.so && la.init != lb.init, "the copies share one handle or one AMI_Init");
        Open(&a, &la, 3);
        Open(&b, &lb, 12);
        for (int at = 0, half = kSamples / 2; at < half; at += kBlock) {
            Stream(&a, at, at + kBlock < half ? at + kBlock : half);
            Stream(&b, at, at + kBlock < half ? at + kBlock : half);
        }
        Stream(&a, kSamples / 2, kSamples);
        Unload(&la);
        Stream(&b, kSamples / 2, kSamples);
        SAME(&a, &solo[0], "copy a, interleaved");
        SAME(&b, &solo[1], "copy b, interleaved, after copy a was unloaded");
        Unload(&lb);
    }
    /* Leaks are reported with the copies' symbols, so check before they go. */
    if (__lsan_do_leak_check) __lsan_do_leak_check();
    unlink(pathA), unlink(pathB), rmdir(dir);
    if (failures == 0) printf("C host: all loads agree bit for bit\n");
    return failures == 0 ? 0 : 1;
}
