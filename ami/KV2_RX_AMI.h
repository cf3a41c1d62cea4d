// The IBIS-AMI entry points of the KV2_RX receiver model.
#pragma once

#if defined(__GNUC__)
#define KV2_AMI_EXPORT __attribute__((visibility("default")))
#else
#define KV2_AMI_EXPORT
#endif

extern "C" {

KV2_AMI_EXPORT long AMI_Init(double* impulse_matrix, long row_size, long aggressors,
                             double sample_interval, double bit_time, char* AMI_parameters_in,
                             char** AMI_parameters_out, void** AMI_memory_handle, char** msg);

KV2_AMI_EXPORT long AMI_GetWave(double* wave, long wave_size, double* clock_times,
                                char** AMI_parameters_out, void* AMI_memory);

KV2_AMI_EXPORT long AMI_Close(void* AMI_memory);

}
