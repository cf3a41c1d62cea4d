// AmiLibrary: an IBIS-AMI model library opened with dlopen, with its three
// entry points looked up by their unmangled names, as a simulator does.
#pragma once

#include <string>

namespace amihost {

using AmiInitFn = long (*)(double* impulse_matrix, long row_size, long aggressors, double sample_interval,
                           double bit_time, char* AMI_parameters_in, char** AMI_parameters_out,
                           void** AMI_memory_handle, char** msg);
using AmiGetWaveFn = long (*)(double* wave, long wave_size, double* clock_times, char** AMI_parameters_out,
                              void* AMI_memory);
using AmiCloseFn = long (*)(void* AMI_memory);

class AmiLibrary {
public:
    // Throws HostError: kMissingLibrary when the file is absent or cannot be
    // loaded, kMissingSymbols naming every entry point it lacks.
    explicit AmiLibrary(const std::string& path);
    ~AmiLibrary();
    AmiLibrary(const AmiLibrary&) = delete;
    AmiLibrary& operator=(const AmiLibrary&) = delete;

    const std::string& Path() const { return m_sPath; }

    AmiInitFn Init = nullptr;
    AmiGetWaveFn GetWave = nullptr;
    AmiCloseFn Close = nullptr;

private:
    std::string m_sPath;
    void* m_pHandle = nullptr;  // dlopen handle
};

}  // namespace amihost
