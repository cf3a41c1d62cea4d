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
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

typedef long (*InitFn)(double*, long, long, double, double, char*, char**, void**, char**);
typedef long (*GetWaveFn)(double*, long, double*, char**, void*);
typedef long (*CloseFn)(void*);

enum { kSamples = 6000, kBlock = 700 };

struct Lib {
    void* handle;
    InitFn init;
    GetWaveFn getWave;
    CloseFn close;
};

/* One instance of a loaded library, with its own waveform. */
struct Run {
    const struct Lib* lib;
    void* handle;
    double wave[kSamples];
};

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
    lib->handle = dlopen(path, mode);
    CHECK(lib->handle != NULL, "dlopen %s: %s", path, dlerror());
    if (lib->handle == NULL) return 0;
    lib->init = (InitFn)dlsym(lib->handle, "AMI_Init");
    lib->getWave = (GetWaveFn)dlsym(lib->handle, "AMI_GetWave");
    lib->close = (CloseFn)dlsym(lib->handle, "AMI_Close");
    CHECK(lib->init && lib->getWave && lib->close, "entry points missing in %s", path);
    return lib->init && lib->getWave && lib->close;
}

static void Unload(struct Lib* lib) {
    CHECK(dlclose(lib->handle) == 0, "dlclose: %s", dlerror());
    memset(lib, 0, sizeof *lib);
}

/* NRZ levels from a fixed linear congruential sequence. */
static void Fill(double* wave) {
    unsigned state = 12345u;
    double level = 0.5;
    for (int i = 0; i < kSamples; ++i) {
        if (i % 32 == 0) {
            state = state * 1103515245u + 12345u;
            level = (state >> 16) & 1 ? 0.5 : -0.5;
        }
        wave[i] = level;
    }
}

/* AMI_Init for setting eq, with a fresh input waveform. */
static void Open(struct Run* run, const struct Lib* lib, int eq) {
    char text[128];
    snprintf(text, sizeof text, "(KV2_RX (SampleRate 1e12) (EQ %d) (SamplesPerBit 32) (Corner \"Typ\"))", eq);
    char* msg = NULL;
    Fill(run->wave);
    run->lib = lib;
    run->handle = NULL;
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

static void Same(const struct Run* run, const struct Run* solo, const char* what) {
    CHECK(memcmp(run->wave, solo->wave, sizeof run->wave) == 0, "%s differs from the solo run", what);
}

static int CopyFile(const char* from, const char* to) {
    int in = open(from, O_RDONLY);
    int out = open(to, O_WRONLY | O_CREAT | O_TRUNC, 0755);
    int ok = in >= 0 && out >= 0;
    char buffer[1 << 16];
    ssize_t n;
    while (ok && (n = read(in, buffer, sizeof buffer)) > 0) ok = write(out, buffer, (size_t)n) == n;
    if (in >= 0) close(in);
    if (out >= 0) close(out);
    return ok;
}

static struct Run refA, refB, a, b;

/* Two renamed copies at once: instances interleaved block by block for
 * half the waveform, then copy a finished and unloaded while copy b's
 * instance runs on. */
static void SideBySide(const char* pathA, const char* pathB, int mode) {
    struct Lib la, lb;
    if (!Load(&la, pathA, mode) || !Load(&lb, pathB, mode)) return;
    CHECK(la.handle != lb.handle && la.init != lb.init, "the copies share one handle or one AMI_Init");
    Open(&a, &la, 3);
    Open(&b, &lb, 12);
    for (int at = 0, half = kSamples / 2; at < half; at += kBlock) {
        Stream(&a, at, at + kBlock < half ? at + kBlock : half);
        Stream(&b, at, at + kBlock < half ? at + kBlock : half);
    }
    Stream(&a, kSamples / 2, kSamples);
    Unload(&la);
    Stream(&b, kSamples / 2, kSamples);
    Same(&a, &refA, "copy a, interleaved");
    Same(&b, &refB, "copy b, interleaved, after copy a was unloaded");
    Unload(&lb);
}

int main(int argc, char** argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: %s LIBRARY static-runtime|shared-runtime\n", argv[0]);
        return 2;
    }
    const char* path = argv[1];
    const int privateRuntime = strcmp(argv[2], "static-runtime") == 0;
    struct Lib lib;
    for (int global = 0; global <= 1; ++global) {
        if (!Load(&lib, path, RTLD_NOW | (global ? RTLD_GLOBAL : RTLD_LOCAL))) return 1;
        if (privateRuntime) {
            /* Nothing of the C++ runtime may be loaded for the host or enter the global scope. */
            CHECK(dlopen("libstdc++.so.6", RTLD_NOW | RTLD_NOLOAD) == NULL, "loading the model pulled in libstdc++");
            CHECK(dlsym(RTLD_DEFAULT, "_ZSt4cerr") == NULL, "std::cerr is visible to the host");
            CHECK(dlsym(RTLD_DEFAULT, "__cxa_throw") == NULL, "__cxa_throw is visible to the host");
        }
        struct Run* eq3 = global ? &a : &refA;
        struct Run* eq12 = global ? &b : &refB;
        Open(eq3, &lib, 3);
        Stream(eq3, 0, kSamples);
        Open(eq12, &lib, 12);
        Stream(eq12, 0, kSamples);
        Unload(&lib);
    }
    Same(&a, &refA, "RTLD_GLOBAL, EQ 3");
    Same(&b, &refB, "RTLD_GLOBAL, EQ 12");
    Fill(a.wave);
    CHECK(memcmp(refA.wave, a.wave, sizeof a.wave) != 0, "the waveform came back unequalized");
    CHECK(memcmp(refA.wave, refB.wave, sizeof a.wave) != 0, "EQ 3 and EQ 12 gave the same waveform");

    char dir[] = "/tmp/kv2_c_host_XXXXXX";
    if (mkdtemp(dir) == NULL) {
        perror("mkdtemp");
        return 1;
    }
    char pathA[64], pathB[64];
    snprintf(pathA, sizeof pathA, "%s/KV2_RX_x64_a.so", dir);
    snprintf(pathB, sizeof pathB, "%s/KV2_RX_x64_b.so", dir);
    CHECK(CopyFile(path, pathA) && CopyFile(path, pathB), "copying the library");
    SideBySide(pathA, pathB, RTLD_NOW | RTLD_LOCAL);
    SideBySide(pathA, pathB, RTLD_NOW | RTLD_GLOBAL);
    /* Leaks are reported with the copies' symbols, so check before they go. */
    if (__lsan_do_leak_check) __lsan_do_leak_check();
    unlink(pathA);
    unlink(pathB);
    rmdir(dir);

    if (failures == 0) printf("C host: all loads agree bit for bit\n");
    return failures == 0 ? 0 : 1;
}
