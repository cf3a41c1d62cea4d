// The IBIS-AMI entry points: AMI_Init builds one receiver instance from the
// simulator's parameter text, AMI_GetWave equalizes waveform blocks in place,
// AMI_Close finalises and frees the instance. No global state: every instance
// lives in its own AMIContainer. No C++ exception may cross into the
// simulator, so each entry point catches at the boundary and fails cleanly.
#include "ami/KV2_RX_AMI.h"

#include <cmath>
#include <exception>
#include <new>

#include "ami/AMIContainer.h"
#include "amiparams/ParamParser.h"

namespace {

using TesselModelBuilder::AMI::ParamParser;

std::string NotFoundMessage(const char* parameter) {
    return std::string("The IBIS-AMI model, KV2_RX, is unable to initialize the parameter ") +
           parameter + " from the AMI_Init arguments.  The model will use the default setting. ";
}

// (0.5 + bit_time / sample_interval) truncated to int: rounding half up for
// the positive ratios simulators pass. A ratio outside the int range (or NaN)
// gives 0, which AMI_GetWave treats as unknown.
int SamplesPerBitFrom(double sample_interval, double bit_time) {
    const double ratio = 0.5 + bit_time / sample_interval;
    if (!(ratio > -2147483649.0 && ratio < 2147483648.0)) return 0;
    return static_cast<int>(ratio);
}

void AttachPort(TesselModelBuilder::CircularBuffer<double>& port, double* storage) {
    port.m_pBuffer = storage;
    port.m_iSize = 1;
    port.m_iRate = 1;
    port.m_iCurrent = 0;
}

void ReleasePort(TesselModelBuilder::CircularBuffer<double>& port) {
    double* base = static_cast<double*>(port.m_pBuffer);
    if (base != nullptr) delete[] &base[port.m_iCurrent];
    port.m_pBuffer = nullptr;
}

long InitInstance(AMIContainer& c, const char* parameters, double sample_interval, double bit_time) {
    TesselModelBuilder::KV2_RX& model = c.cTesselModel;
    ParamParser parser(parameters);
    c.iSamplesPerBit = SamplesPerBitFrom(sample_interval, bit_time);

    if (!parser.GetValue(model.SampleRate, "KV2_RX.SampleRate")) c.sMessage += NotFoundMessage("SampleRate");
    if (!parser.GetValue(model.EQ, "KV2_RX.EQ")) c.sMessage += NotFoundMessage("EQ");
    if (!parser.GetValue(model.SamplesPerBit, "KV2_RX.SamplesPerBit")) c.sMessage += NotFoundMessage("SamplesPerBit");
    if (!parser.GetValue(model.Corner, "KV2_RX.Corner")) c.sMessage += NotFoundMessage("Corner");

    AttachPort(model.input, new double[1]);
    AttachPort(model.output, new double[1]);

    if (!model.Setup()) {
        c.sMessage += "Error occurred in KV2_RX::Setup(). ";
        return 0;
    }
    if (!model.Initialize()) {
        c.sMessage += "Error occurred in KV2_RX::Initialize(). ";
        return 0;
    }
    return 1;
}

}  // namespace

extern "C" {

long AMI_Init(double* /*impulse_matrix*/, long /*row_size*/, long /*aggressors*/,
              double sample_interval, double bit_time, char* AMI_parameters_in,
              char** /*AMI_parameters_out*/, void** AMI_memory_handle, char** msg) {
    if (AMI_memory_handle == nullptr) return 0;
    AMIContainer* c = nullptr;
    long result = 0;
    try {
        c = new AMIContainer;
        result = InitInstance(*c, AMI_parameters_in != nullptr ? AMI_parameters_in : "",
                              sample_interval, bit_time);
    } catch (const std::exception&) {
        if (c == nullptr) {
            *AMI_memory_handle = nullptr;
            return 0;
        }
        result = 0;
    }
    *AMI_memory_handle = c;
    if (msg != nullptr && !c->sMessage.empty()) *msg = c->sMessage.data();
    return result;
}

long AMI_GetWave(double* wave, long wave_size, double* clock_times, char** /*AMI_parameters_out*/,
                 void* AMI_memory) {
    AMIContainer* c = static_cast<AMIContainer*>(AMI_memory);
    if (c == nullptr || wave_size < 0 || (wave == nullptr && wave_size > 0)) return 0;
    TesselModelBuilder::KV2_RX& model = c->cTesselModel;
    // A model whose Setup failed was never wired: there is nothing to run.
    if (!model.IsWired()) return 0;
    try {
        c->vClockTimes.resize(static_cast<size_t>(wave_size) + 1);
    } catch (const std::exception&) {
        return 0;
    }

    long result = 1;
    double* in = static_cast<double*>(model.input.m_pBuffer);
    const double* out = static_cast<const double*>(model.output.m_pBuffer);
    for (long i = 0; i < wave_size; ++i) {
        in[model.input.m_iCurrent] = wave[i];
        if (!model.Run()) {
            c->sLaterMessages += "Error occurred in KV2_RX::Run(). ";
            result = 0;
            break;
        }
        wave[i] = out[model.output.m_iCurrent];
    }

    // No clock times are produced: -1 in the first slot ends the list. Only
    // that slot is written, and only when the block has a sample (a positive
    // samples-per-bit always allows at least that one slot).
    c->vClockTimes[0] = -1.0;
    if (clock_times != nullptr && wave_size > 0) clock_times[0] = c->vClockTimes[0];
    return result;
}

long AMI_Close(void* AMI_memory) {
    AMIContainer* c = static_cast<AMIContainer*>(AMI_memory);
    if (c == nullptr) return 0;
    long result = 1;
    try {
        if (!c->cTesselModel.Finalize()) {
            c->sLaterMessages += "Error occurred in KV2_RX::Finalize(). ";
            result = 0;
        }
    } catch (const std::exception&) {
        result = 0;
    }
    ReleasePort(c->cTesselModel.input);
    ReleasePort(c->cTesselModel.output);
    delete c;
    return result;
}

}  // extern "C"
