// The IBIS-AMI entry points: AMI_Init builds one receiver instance from the
// simulator's parameter text, AMI_GetWave equalizes waveform blocks in place,
// AMI_Close finalises and frees the instance. Every instance lives in its own
// AMIContainer; the only shared state is the registry of live instances,
// through which each handle is checked before it is used. No C++ exception
// may cross into the simulator, so each entry point catches at the boundary
// and fails cleanly.
#include "ami/KV2_RX_AMI.h"

#include <exception>
#include <string>

#include "ami/AMIContainer.h"
#include "ami/FpEnvironmentGuard.h"
#include "ami/InstanceRegistry.h"
#include "amiparams/ParamParser.h"

namespace {

using TesselModelBuilder::AMI::ParamParser;

// Said when there is no instance to hold a message; a constant, not state.
char kNoHandleMessage[] =
    "The IBIS-AMI model, KV2_RX, cannot initialize: AMI_memory_handle is null. ";
char kNoMemoryMessage[] = "The IBIS-AMI model, KV2_RX, ran out of memory while initializing. ";

// The instance behind a handle, or null when the handle is not one this
// library handed out and has not yet closed. The handle is only compared,
// never read through.
AMIContainer* Live(void* handle) {
    return InstanceRegistry::Contains(handle) ? static_cast<AMIContainer*>(handle) : nullptr;
}

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
    c.iSamplesPerBit = SamplesPerBitFrom(sample_interval, bit_time);
    AttachPort(model.input, new double[1]());
    AttachPort(model.output, new double[1]());
    if (parameters == nullptr) {
        c.sMessage += "The IBIS-AMI model, KV2_RX, received no parameter text (AMI_parameters_in is null). ";
        return 0;
    }

    ParamParser parser(parameters);
    if (!parser.GetValue(model.SampleRate, "KV2_RX.SampleRate")) c.sMessage += NotFoundMessage("SampleRate");
    if (!parser.GetValue(model.EQ, "KV2_RX.EQ")) c.sMessage += NotFoundMessage("EQ");
    if (!parser.GetValue(model.SamplesPerBit, "KV2_RX.SamplesPerBit"))
        c.sMessage += NotFoundMessage("SamplesPerBit");
    if (!parser.GetValue(model.Corner, "KV2_RX.Corner")) c.sMessage += NotFoundMessage("Corner");

    if (!model.Setup()) {
        c.sMessage += "Error occurred in KV2_RX::Setup(). ";
        return 0;
    }
    if (!model.Initialize()) {
        c.sMessage += "Error occurred in KV2_RX::Initialize(). ";
        return 0;
    }
    c.bBlockPath = model.CanRunBlock();
    return 1;
}

// The specified per-sample loop: one Run per sample, stopping at the first
// failure with the remaining samples left as they were.
long RunPerSample(AMIContainer& c, double* wave, long wave_size) {
    TesselModelBuilder::KV2_RX& model = c.cTesselModel;
    double* in = static_cast<double*>(model.input.m_pBuffer);
    const double* out = static_cast<const double*>(model.output.m_pBuffer);
    for (long i = 0; i < wave_size; ++i) {
        in[model.input.m_iCurrent] = wave[i];
        if (!model.Run()) {
            c.sLaterMessages += "Error occurred in KV2_RX::Run(). ";
            return 0;
        }
        wave[i] = out[model.output.m_iCurrent];
    }
    return 1;
}

// A thread's first exception needs this library's thread-local data, which
// the loader allocates on first use and, when it cannot, ends the process
// instead of throwing. Touching it on entry, before the call allocates
// anything, makes an out-of-memory failure later in the call catchable.
// (The count is read into a volatile: the call is pure and would otherwise
// be dropped.)
void PrepareThreadForExceptions() {
    volatile int pending = std::uncaught_exceptions();
    (void)pending;
}

}  // namespace

#ifdef KV2_PRIVATE_CXX_RUNTIME
// The C++ runtime linked into this library keeps an emergency pool for
// exceptions thrown when memory runs out; only __freeres gives it back. A
// host that unloads the library would otherwise lose the pool with every
// dlclose.
namespace __gnu_cxx {
void __freeres() noexcept;
}
__attribute__((destructor)) static void ReleaseCxxRuntimePool() { __gnu_cxx::__freeres(); }
#endif

extern "C" {

long AMI_Init(double* /*impulse_matrix*/, long /*row_size*/, long /*aggressors*/,
              double sample_interval, double bit_time, char* AMI_parameters_in,
              char** /*AMI_parameters_out*/, void** AMI_memory_handle, char** msg) {
    const TesselModelBuilder::FpEnvironmentGuard fpEnvironment;
    PrepareThreadForExceptions();
    if (AMI_memory_handle == nullptr) {
        if (msg != nullptr) *msg = kNoHandleMessage;
        return 0;
    }
    AMIContainer* c = nullptr;
    long result = 0;
    try {
        c = new AMIContainer;
        if (!InstanceRegistry::Add(c)) {
            // An instance nobody could check a handle against would be refused
            // by every later call: give none out.
            delete c;
            *AMI_memory_handle = nullptr;
            if (msg != nullptr) *msg = kNoMemoryMessage;
            return 0;
        }
        result = InitInstance(*c, AMI_parameters_in, sample_interval, bit_time);
    } catch (const std::exception&) {
        // Out of memory part-way: the instance is kept so that AMI_Close frees it.
        result = 0;
        if (c != nullptr) {
            c->bBlockPath = false;
            try {
                c->sMessage += "The IBIS-AMI model, KV2_RX, ran out of memory while initializing. ";
            } catch (const std::exception&) {
            }
        }
    }
    *AMI_memory_handle = c;
    if (msg != nullptr && c != nullptr && !c->sMessage.empty()) *msg = c->sMessage.data();
    return result;
}

long AMI_GetWave(double* wave, long wave_size, double* clock_times, char** /*AMI_parameters_out*/,
                 void* AMI_memory) {
    const TesselModelBuilder::FpEnvironmentGuard fpEnvironment;
    PrepareThreadForExceptions();
    AMIContainer* c = Live(AMI_memory);
    if (c == nullptr || wave_size < 0 || (wave == nullptr && wave_size > 0)) return 0;
    // A model whose Setup failed was never wired: there is nothing to run.
    if (!c->cTesselModel.IsWired()) return 0;

    long result = 1;
    try {
        if (c->vClockTimes.empty()) c->vClockTimes.resize(1);
        if (c->bBlockPath)
            c->cTesselModel.RunBlock(wave, static_cast<size_t>(wave_size), c->eSimdLevel);
        else
            result = RunPerSample(*c, wave, wave_size);
    } catch (const std::exception&) {
        return 0;
    }

    // No clock times are produced: -1 in the first slot ends the list. Only
    // that slot is written, and only when the block has a sample (a positive
    // samples-per-bit always allows at least that one slot).
    c->vClockTimes[0] = -1.0;
    if (clock_times != nullptr && wave_size > 0) clock_times[0] = c->vClockTimes[0];
    return result;
}

long AMI_Close(void* AMI_memory) {
    const TesselModelBuilder::FpEnvironmentGuard fpEnvironment;
    PrepareThreadForExceptions();
    if (!InstanceRegistry::Remove(AMI_memory)) return 0;
    AMIContainer* c = static_cast<AMIContainer*>(AMI_memory);
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
    // Destroyed now; its memory (the handle's address) is held back, and
    // freed as plain operator-new memory.
    static_assert(alignof(AMIContainer) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__, "over-aligned container");
    c->~AMIContainer();
    InstanceRegistry::Retire(c, [](void* memory) { ::operator delete(memory); });
    return result;
}

}  // extern "C"
