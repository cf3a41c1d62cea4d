/* A fixed set of simulator sessions, in plain C for Linux and Windows alike:
 * each case's AMI_Init/AMI_GetWave/AMI_Close results, message and output
 * samples go byte for byte into one file, so that two builds or two systems
 * can be compared with cmp. Along the way it checks what must hold on any
 * system: the caller's MXCSR survives every call, and the vector block path
 * gives the bits of one-sample calls.
 *
 * usage: KV2_RX_AMI_case_host LIBRARY OUTPUT [ten]
 * ("ten": only the ten sample-rate cases whose CTLE design once depended on
 * the CPU's pow.) */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <xmmintrin.h>
#ifdef _WIN32
#include <windows.h>
typedef long AmiLong; /* 32 bits on Win64: what the entry points' long means there */
#else
#include <dlfcn.h>
typedef long AmiLong;
#endif

typedef AmiLong (*InitFn)(double*, AmiLong, AmiLong, double, double, char*, char**, void**, char**);
typedef AmiLong (*GetWaveFn)(double*, AmiLong, double*, char**, void*);
typedef AmiLong (*CloseFn)(void*);

static InitFn Init;
static GetWaveFn GetWave;
static CloseFn Close;
static FILE* out;
static int failures = 0;

#define CHECK(cond, what) \
    do { if (!(cond) && failures++ < 20) fprintf(stderr, "FAILED case %d: %s\n", number, what); } while (0)

enum { kSamples = 12000 };

struct Case {
    double sampleRate; /* 0: the parameter is left out */
    int eq;
    int samplesPerBit;
    int block;
    const char* text; /* a parameter string of its own instead */
};

static double wave[kSamples], reference[kSamples], clockTimes[kSamples + 1];

static void Stimulus(int samplesPerBit) {
    uint32_t state = 20240601u;
    for (int i = 0; i < kSamples; ++i) {
        if (i % samplesPerBit == 0) state = state * 1103515245u + 12345u;
        wave[i] = (state >> 16) & 1 ? 0.5 : -0.5;
    }
}

/* One session; writes its record; returns AMI_GetWave's result. */
static long Session(int number, const struct Case* c, unsigned mxcsr) {
    char text[256], *msg = NULL;
    if (c->text)
        snprintf(text, sizeof text, "%s", c->text);
    else
        snprintf(text, sizeof text, "(KV2_RX (SampleRate %.17g) (EQ %d) (SamplesPerBit %d) (Corner \"Typ\"))",
                 c->sampleRate, c->eq, c->samplesPerBit);
    /* Volatile: computed, flags and all, before the host's MXCSR is set. */
    volatile double interval = c->sampleRate > 0 ? 1.0 / c->sampleRate : 1e-12;
    Stimulus(c->samplesPerBit > 0 ? c->samplesPerBit : 32);
    volatile double bitTime = interval * (c->samplesPerBit > 0 ? c->samplesPerBit : 32);
    void* handle = NULL;
    const unsigned saved = _mm_getcsr();
    _mm_setcsr(mxcsr); /* no floating-point work of the host's own until it is restored */
    const AmiLong init = Init(NULL, 0, 0, interval, bitTime, text, NULL, &handle, &msg);
    CHECK(_mm_getcsr() == mxcsr, "AMI_Init changed the caller's MXCSR");
    AmiLong got = 1;
    for (int at = 0; at < kSamples && got == 1; at += c->block) {
        const int n = kSamples - at < c->block ? kSamples - at : c->block;
        got = GetWave(wave + at, n, clockTimes, NULL, handle);
        CHECK(_mm_getcsr() == mxcsr, "AMI_GetWave changed the caller's MXCSR");
    }
    _mm_setcsr(saved);
    /* The message lives until AMI_Close. */
    fprintf(out, "case %d: %s\ninit %ld getwave %ld\nmessage [%s]\n", number, text, (long)init, (long)got,
            msg ? msg : "(none)");
    _mm_setcsr(mxcsr);
    const AmiLong closed = Close(handle);
    CHECK(_mm_getcsr() == mxcsr, "AMI_Close changed the caller's MXCSR");
    _mm_setcsr(saved);
    fprintf(out, "close %ld\n", (long)closed);
    fwrite(wave, sizeof wave[0], kSamples, out);
    fputc('\n', out);
    return got;
}

int main(int argc, char** argv) {
    if (argc < 3) return fprintf(stderr, "usage: %s LIBRARY OUTPUT [ten]\n", argv[0]), 2;
#ifdef _WIN32
    HMODULE so = LoadLibraryA(argv[1]);
    if (so == NULL) return fprintf(stderr, "LoadLibrary %s: error %lu\n", argv[1], GetLastError()), 1;
    Init = (InitFn)(void (*)(void))GetProcAddress(so, "AMI_Init");
    GetWave = (GetWaveFn)(void (*)(void))GetProcAddress(so, "AMI_GetWave");
    Close = (CloseFn)(void (*)(void))GetProcAddress(so, "AMI_Close");
#else
    void* so = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (so == NULL) return fprintf(stderr, "dlopen %s: %s\n", argv[1], dlerror()), 1;
    Init = (InitFn)dlsym(so, "AMI_Init");
    GetWave = (GetWaveFn)dlsym(so, "AMI_GetWave");
    Close = (CloseFn)dlsym(so, "AMI_Close");
#endif
    if (!Init || !GetWave || !Close) return fprintf(stderr, "entry points missing\n"), 1;
    out = fopen(argv[2], "wb");
    if (out == NULL) return perror(argv[2]), 1;
    const int tenOnly = argc > 3 && strcmp(argv[3], "ten") == 0;

    static const struct Case ten[10] = {
        {3.4122e10, 1, 32, 4096, NULL},  {8.10128e11, 0, 32, 4096, NULL}, {1.82654e10, 12, 32, 4096, NULL},
        {1.7714e10, 11, 32, 4096, NULL}, {2.5e10, 5, 32, 4096, NULL},     {5.0e10, 7, 32, 4096, NULL},
        {1.0e11, 9, 32, 4096, NULL},     {3.2e11, 3, 32, 4096, NULL},     {6.4e11, 14, 32, 4096, NULL},
        {1.0e13, 15, 32, 4096, NULL},
    };
    static const struct Case failing[] = {
        {0, 0, 0, 4096, "(KV2_RX)"},                                      /* every parameter defaulted */
        {1e12, 4, 8, 4096, NULL},                                         /* SamplesPerBit below 16 */
        {1e12, 16, 32, 4096, NULL},                                       /* EQ out of range */
        {0, 0, 0, 4096, "(KV2_RX (SampleRate 0) (EQ 2) (SamplesPerBit 32))"},
        {0, 0, 0, 4096, "(KV2_RX (EQ 3"},                                 /* not a tree */
        {0, 0, 0, 4096, "(KV2_RX (SampleRate nan) (EQ 2) (SamplesPerBit 32) (Corner \"Fast\"))"},
    };
    int number = 0;
    for (int k = 0; k < 10; ++k) Session(++number, &ten[k], 0x1F80);
    if (!tenOnly) {
        for (int eq = 0; eq < 16; ++eq) {
            const struct Case c = {1e12, eq, 32, 4096, NULL};
            Session(++number, &c, 0x1F80);
        }
        /* Odd block sizes; one-sample calls take the per-sample path, the
         * large blocks the widest vector kernels the CPU has. */
        const int blocks[] = {1, 7, 813, kSamples};
        for (int k = 0; k < 4; ++k) {
            const struct Case c = {1e12, 9, 40, blocks[k], NULL};
            Session(++number, &c, 0x1F80);
            if (k == 0) memcpy(reference, wave, sizeof wave);
            else CHECK(memcmp(reference, wave, sizeof wave) == 0, "blocks of this size differ from one-sample calls");
        }
        /* A host in round-toward-zero with flush-to-zero, denormals-are-zero
         * and every exception unmasked gets the default bits. */
        const struct Case c = {2.5e10, 13, 32, 1000, NULL};
        Session(++number, &c, 0x1F80);
        memcpy(reference, wave, sizeof wave);
        Session(++number, &c, 0xE040);
        CHECK(memcmp(reference, wave, sizeof wave) == 0, "a host's MXCSR changed the output");
        for (size_t k = 0; k < sizeof failing / sizeof failing[0]; ++k) Session(++number, &failing[k], 0x1F80);
        /* AMI_GetWave of no samples. */
        void* handle = NULL;
        char* msg = NULL;
        char text[] = "(KV2_RX (SampleRate 1e12) (EQ 1) (SamplesPerBit 32) (Corner \"Typ\"))";
        CHECK(Init(NULL, 0, 0, 1e-12, 32e-12, text, NULL, &handle, &msg) == 1, "AMI_Init");
        clockTimes[0] = 7.0;
        CHECK(GetWave(wave, 0, clockTimes, NULL, handle) == 1 && clockTimes[0] == 7.0, "an empty AMI_GetWave");
        CHECK(Close(handle) == 1, "AMI_Close");
        ++number;
    }
    fclose(out);
    printf("%d cases, %d failed checks\n", number, failures);
    return failures == 0 ? 0 : 1;
}
