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
#include <sys/stat.h>
#include <unistd.h>

typedef long (*InitFn)(double*, long, long, double, double, char*, char**, void**, char**);
typedef long (*GetWaveFn)(double*, long, double*, char**, void*);
typedef long (*CloseFn)(void*);

struct Lib {
    void* handle;
    InitFn init;
    GetWaveFn getWave;
    CloseFn close;
};

enum { kSamples = 6000, kBlock = 700 };

static int failures = 0;

/* Present only under LeakSanitizer: runs the leak check on demand. */
extern void __lsan_do_leak_check(void) __attribute__((weak));

#define CHECK(cond, ...)                                             \
    do {                                                             \
        if (!(cond)) {                                               \
            fprintf(stderr, "FAILED %s:%d: ", __FILE__, __LINE__);   \
            fprintf(stderr, __VA_ARGS__);                            \
            fputc('\n', stderr);                                     \
            ++failures;                                              \
        }                                                            \
    } while (0)

static int Load(struct Lib* lib, const char* path, int mode) {
    memset(lib, 0, sizeof *lib);
    lib->handle = dlopen(path, mode);
    if (lib->handle == NULL) {
        fprintf(stderr, "dlopen %s: %s\n", path, dlerror());
        ++failures;
        return 0;
    }
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
static void Input(double* wave) {
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

static void* Open(const struct Lib* lib, int eq) {
    char text[128];
    snprintf(text, sizeof text, "(KV2_RX (SampleRate 1e12) (EQ %d) (SamplesPerBit 32) (Corner \"Typ\"))", eq);
    void* handle = NULL;
    char* msg = NULL;
    CHECK(lib->init(NULL, 0, 0, 1e-12, 32e-12, text, NULL, &handle, &msg) == 1, "AMI_Init EQ %d", eq);
    CHECK(handle != NULL, "no handle");
    return handle;
}

static void Stream(const struct Lib* lib, void* handle, double* wave, int from, int to) {
    double clock = 0.0;
    for (int at = from; at < to; at += kBlock) {
        const long n = to - at < kBlock ? to - at : kBlock;
        CHECK(lib->getWave(wave + at, n, &clock, NULL, handle) == 1, "AMI_GetWave at %d", at);
    }
}

static void Solo(const struct Lib* lib, int eq, double* wave) {
    Input(wave);
    void* handle = Open(lib, eq);
    Stream(lib, handle, wave, 0, kSamples);
    CHECK(lib->close(handle) == 1, "AMI_Close");
}

static int Same(const double* a, const double* b, const char* what) {
    const int same = memcmp(a, b, kSamples * sizeof(double)) == 0;
    CHECK(same, "%s differs from the solo run", what);
    return same;
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

static double refA[kSamples], refB[kSamples], wa[kSamples], wb[kSamples], input[kSamples];

/* Two renamed copies at once: instances interleaved block by block, then
 * copy a unloaded half-way while copy b's instance runs on. */
static void SideBySide(const char* pathA, const char* pathB, int mode) {
    struct Lib a, b;
    if (!Load(&a, pathA, mode) || !Load(&b, pathB, mode)) return;
    CHECK(a.handle != b.handle, "the copies share one handle");
    CHECK(a.init != b.init, "the copies share one AMI_Init");

    Input(wa);
    Input(wb);
    void* ia = Open(&a, 3);
    void* ib = Open(&b, 12);
    for (int at = 0; at < kSamples; at += kBlock) {
        const int to = at + kBlock < kSamples ? at + kBlock : kSamples;
        Stream(&a, ia, wa, at, to);
        Stream(&b, ib, wb, at, to);
    }
    CHECK(a.close(ia) == 1 && b.close(ib) == 1, "AMI_Close");
    Same(wa, refA, "copy a, interleaved");
    Same(wb, refB, "copy b, interleaved");

    Input(wa);
    Input(wb);
    ia = Open(&a, 3);
    ib = Open(&b, 12);
    Stream(&a, ia, wa, 0, kSamples);
    Stream(&b, ib, wb, 0, kSamples / 2);
    CHECK(a.close(ia) == 1, "AMI_Close");
    Unload(&a);
    Stream(&b, ib, wb, kSamples / 2, kSamples);
    CHECK(b.close(ib) == 1, "AMI_Close");
    Same(wa, refA, "copy a");
    Same(wb, refB, "copy b, after copy a was unloaded");
    Unload(&b);
}

int main(int argc, char** argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: %s LIBRARY static-runtime|shared-runtime\n", argv[0]);
        return 2;
    }
    const char* path = argv[1];
    const int privateRuntime = strcmp(argv[2], "static-runtime") == 0;

    struct Lib lib;
    if (!Load(&lib, path, RTLD_NOW | RTLD_LOCAL)) return 1;
    if (privateRuntime)
        CHECK(dlopen("libstdc++.so.6", RTLD_NOW | RTLD_NOLOAD) == NULL, "loading the model pulled in libstdc++");
    Solo(&lib, 3, refA);
    Solo(&lib, 12, refB);
    Input(input);
    CHECK(memcmp(refA, input, sizeof refA) != 0, "the waveform came back unequalized");
    CHECK(memcmp(refA, refB, sizeof refA) != 0, "EQ 3 and EQ 12 gave the same waveform");
    Unload(&lib);

    if (Load(&lib, path, RTLD_NOW | RTLD_GLOBAL)) {
        if (privateRuntime) {
            /* Nothing of the C++ runtime may enter the global scope. */
            CHECK(dlsym(RTLD_DEFAULT, "_ZSt4cerr") == NULL, "std::cerr is visible to the host");
            CHECK(dlsym(RTLD_DEFAULT, "__cxa_throw") == NULL, "__cxa_throw is visible to the host");
        }
        Solo(&lib, 3, wa);
        Solo(&lib, 12, wb);
        Same(wa, refA, "RTLD_GLOBAL, EQ 3");
        Same(wb, refB, "RTLD_GLOBAL, EQ 12");
        Unload(&lib);
    }

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
