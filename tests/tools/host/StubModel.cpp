// A stand-in AMI model for the host's tests: it passes the waveform through
// unchanged, fails where its parameter string asks it to (Mode 1: AMI_Init
// returns 0, 2: AMI_GetWave returns 0, 3: AMI_GetWave aborts, 4: AMI_Init ends
// the process, 5: AMI_GetWave never returns), and appends each
// entry point it sees to the file named by AMIHOST_STUB_LOG. Built once
// complete and once without AMI_GetWave.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

char kInitMessage[] = "stub init failed";

void Log(const char* what) {
    const char* path = std::getenv("AMIHOST_STUB_LOG");
    if (FILE* f = path ? std::fopen(path, "a") : nullptr) std::fprintf(f, "%s\n", what), std::fclose(f);
}

struct Instance { int nMode; };

}  // namespace

extern "C" {

__attribute__((visibility("default"))) long AMI_Init(double*, long, long, double, double, char* parameters, char**,
                                                     void** handle, char** msg) {
    Log("init");
    const char* mode = std::strstr(parameters, "(Mode ");
    *handle = new Instance{mode != nullptr ? std::atoi(mode + 6) : 0};
    if (std::strstr(parameters, "(Mode 4)") != nullptr) std::exit(3);
    if (std::strstr(parameters, "(Mode 1)") != nullptr) {
        *msg = kInitMessage;
        return 0;
    }
    return 1;
}

#ifndef STUB_WITHOUT_GETWAVE
__attribute__((visibility("default"))) long AMI_GetWave(double*, long, double* clock_times, char**, void* handle) {
    Log("getwave");
    clock_times[0] = -1.0;
    const int mode = static_cast<Instance*>(handle)->nMode;
    if (mode == 3) std::abort();
    while (mode == 5) pause();
    return mode == 2 ? 0 : 1;
}
#endif

__attribute__((visibility("default"))) long AMI_Close(void* handle) {
    Log("close");
    delete static_cast<Instance*>(handle);
    return 1;
}

}
