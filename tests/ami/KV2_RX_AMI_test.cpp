// The built KV2_RX_x64.so as a simulator sees it: loaded with dlopen, driven
// only through the three standard entry points.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

using InitFn = long (*)(double*, long, long, double, double, char*, char**, void**, char**);
using GetWaveFn = long (*)(double*, long, double*, char**, void*);
using CloseFn = long (*)(void*);

std::string NotFound(const char* name) {
    return std::string("The IBIS-AMI model, KV2_RX, is unable to initialize the parameter ") + name +
           " from the AMI_Init arguments.  The model will use the default setting. ";
}

const std::string kAllFourMissing =
    NotFound("SampleRate") + NotFound("EQ") + NotFound("SamplesPerBit") + NotFound("Corner");

class Library {
public:
    Library() {
        handle_ = dlopen(KV2_RX_SO_PATH, RTLD_NOW | RTLD_LOCAL);
        if (handle_ == nullptr) return;
        init = reinterpret_cast<InitFn>(dlsym(handle_, "AMI_Init"));
        getWave = reinterpret_cast<GetWaveFn>(dlsym(handle_, "AMI_GetWave"));
        close = reinterpret_cast<CloseFn>(dlsym(handle_, "AMI_Close"));
    }
    ~Library() {
        if (handle_ != nullptr) dlclose(handle_);
    }
    bool Loaded() const { return handle_ && init && getWave && close; }

    InitFn init = nullptr;
    GetWaveFn getWave = nullptr;
    CloseFn close = nullptr;

private:
    void* handle_ = nullptr;
};

Library& Lib() {
    static Library library;
    return library;
}

// One AMI_Init call with everything the test needs to inspect.
struct Instance {
    void* handle = nullptr;
    long result = -1;
    char* msg = nullptr;
};

Instance Init(std::string parameters, double sample_interval = 1e-12, double bit_time = 32e-12,
              char* sentinel = nullptr) {
    Instance in;
    in.msg = sentinel;
    std::vector<double> impulse(64, 0.0);
    in.result = Lib().init(impulse.data(), 64, 0, sample_interval, bit_time, parameters.data(),
                           nullptr, &in.handle, &in.msg);
    return in;
}

// Deterministic test waveform: NRZ-ish levels with noise.
std::vector<double> Waveform(size_t n, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> noise(-0.05, 0.05);
    std::vector<double> wave(n);
    double level = 0.5;
    for (size_t i = 0; i < n; ++i) {
        if (i % 32 == 0) level = (rng() & 1) ? 0.5 : -0.5;
        wave[i] = level + noise(rng);
    }
    return wave;
}

std::vector<double> RunInBlocks(const std::string& parameters, std::vector<double> wave, size_t block) {
    Instance in = Init(parameters);
    EXPECT_EQ(in.result, 1);
    std::vector<double> clocks(wave.size() + 1);
    for (size_t at = 0; at < wave.size(); at += block) {
        const long n = static_cast<long>(std::min(block, wave.size() - at));
        EXPECT_EQ(Lib().getWave(wave.data() + at, n, clocks.data(), nullptr, in.handle), 1);
    }
    EXPECT_EQ(Lib().close(in.handle), 1);
    return wave;
}

bool SameBits(const std::vector<double>& a, const std::vector<double>& b) {
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(double)) == 0;
}

const char kFullParameters[] =
    "(KV2_RX (SampleRate 1e12) (EQ 5) (SamplesPerBit 32) (Corner \"Typ\"))";

}  // namespace

class AmiLibrary : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(Lib().Loaded()) << dlerror(); }
};

TEST_F(AmiLibrary, MissingParametersAreReportedInOrderAndKeepDefaults) {
    for (const char* text : {"(KV2_RX (Other 1))", "not a tree", "(KV2_RX (EQ \"3\"))", "(X (EQ 3))"}) {
        Instance in = Init(text);
        EXPECT_EQ(in.result, 1) << text;
        ASSERT_NE(in.msg, nullptr) << text;
        EXPECT_EQ(std::string(in.msg), kAllFourMissing) << text;
        EXPECT_EQ(Lib().close(in.handle), 1);
    }
}

TEST_F(AmiLibrary, NothingToSayLeavesMsgAndOutputsUntouched) {
    char sentinel[] = "untouched";
    std::vector<double> impulse(128);
    for (size_t i = 0; i < impulse.size(); ++i) impulse[i] = std::sin(0.1 * i) * 1e-3;
    const std::vector<double> before = impulse;
    std::string parameters = kFullParameters;
    char* msg = sentinel;
    char* out = sentinel;
    void* handle = nullptr;
    EXPECT_EQ(Lib().init(impulse.data(), 64, 1, 1e-12, 32e-12, parameters.data(), &out, &handle, &msg), 1);
    EXPECT_EQ(msg, sentinel);
    EXPECT_EQ(out, sentinel);
    EXPECT_TRUE(SameBits(impulse, before));
    EXPECT_EQ(Lib().close(handle), 1);
}

TEST_F(AmiLibrary, FailedSetupIsReportedAndTheInstanceStillCloses) {
    testing::internal::CaptureStderr();
    Instance in = Init("(KV2_RX (SamplesPerBit 15))");
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(in.result, 0);
    ASSERT_NE(in.handle, nullptr);
    EXPECT_EQ(std::string(in.msg), NotFound("SampleRate") + NotFound("EQ") + NotFound("Corner") +
                                       "Error occurred in KV2_RX::Setup(). ");
    EXPECT_EQ(err,
              "Latency must be lager than or equal to 0 and smaller than or equal to SamplesPerBit / 2.\n");

    // A simulator may still call AMI_GetWave: nothing was wired, nothing is touched.
    std::vector<double> wave = {0.25, -0.25, 0.5};
    std::vector<double> clocks = {7.0, 7.0};
    EXPECT_EQ(Lib().getWave(wave.data(), 3, clocks.data(), nullptr, in.handle), 0);
    EXPECT_EQ(wave, (std::vector<double>{0.25, -0.25, 0.5}));
    EXPECT_EQ(clocks[0], 7.0);
    EXPECT_EQ(Lib().close(in.handle), 1);

    testing::internal::CaptureStderr();
    Instance zero = Init("(KV2_RX (SampleRate 0) (EQ 1) (SamplesPerBit 32) (Corner \"Typ\"))");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "SampleRate must be >0\n");
    EXPECT_EQ(std::string(zero.msg), "Error occurred in KV2_RX::Setup(). ");
    EXPECT_EQ(Lib().close(zero.handle), 1);
}

TEST_F(AmiLibrary, BlockBoundariesDoNotChangeTheOutput) {
    const std::vector<double> wave = Waveform(5000, 7);
    const std::vector<double> whole = RunInBlocks(kFullParameters, wave, wave.size());
    EXPECT_FALSE(SameBits(whole, wave));
    for (size_t block : {1u, 7u, 1000u}) EXPECT_TRUE(SameBits(RunInBlocks(kFullParameters, wave, block), whole)) << block;
}

TEST_F(AmiLibrary, OnlyTheFirstClockSlotIsWritten) {
    Instance in = Init(kFullParameters, 1e-12, 8e-12);
    std::vector<double> wave(1000, 0.1);
    std::vector<double> clocks(1001, 3.0);
    const std::vector<double> untouchedWave = wave;
    EXPECT_EQ(Lib().getWave(wave.data(), 0, clocks.data(), nullptr, in.handle), 1);
    EXPECT_EQ(clocks[0], 3.0);
    EXPECT_TRUE(SameBits(wave, untouchedWave));
    EXPECT_EQ(Lib().getWave(wave.data(), 1000, clocks.data(), nullptr, in.handle), 1);
    EXPECT_EQ(clocks[0], -1.0);
    for (size_t i = 1; i < clocks.size(); ++i) ASSERT_EQ(clocks[i], 3.0) << i;
    EXPECT_EQ(Lib().close(in.handle), 1);

    // Bit time below half a sample: no samples-per-bit, still just the end marker.
    Instance tiny = Init(kFullParameters, 1e-12, 0.2e-12);
    clocks.assign(4, 3.0);
    EXPECT_EQ(Lib().getWave(wave.data(), 3, clocks.data(), nullptr, tiny.handle), 1);
    EXPECT_EQ(clocks, (std::vector<double>{-1.0, 3.0, 3.0, 3.0}));
    EXPECT_EQ(Lib().close(tiny.handle), 1);
}

TEST_F(AmiLibrary, EqualizerOutOfRangeFailsEachCallAndLeavesTheWave) {
    for (const char* eq : {"16", "-1"}) {
        const std::string parameters =
            std::string("(KV2_RX (EQ ") + eq + ") (SamplesPerBit 32) (SampleRate 1e12) (Corner \"Typ\"))";
        Instance in = Init(parameters);
        EXPECT_EQ(in.result, 1);
        std::vector<double> wave = {0.5, 0.25, -0.5};
        std::vector<double> clocks = {3.0, 3.0};
        testing::internal::CaptureStderr();
        EXPECT_EQ(Lib().getWave(wave.data(), 3, clocks.data(), nullptr, in.handle), 0);
        EXPECT_EQ(Lib().getWave(wave.data(), 0, clocks.data(), nullptr, in.handle), 1);
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  std::string("Control input signal value is equal to ") + eq +
                      ".  There are 16 inputs connected.  The valid control input range is [0,15].\n");
        EXPECT_EQ(wave, (std::vector<double>{0.5, 0.25, -0.5}));
        EXPECT_EQ(clocks[0], -1.0);
        EXPECT_EQ(Lib().close(in.handle), 1);
    }
}

TEST_F(AmiLibrary, InterleavedInstancesMatchTheirSoloRuns) {
    const std::vector<double> wave = Waveform(3000, 11);
    const std::string eq3 = "(KV2_RX (EQ 3) (SamplesPerBit 32))";
    const std::string eq12 = "(KV2_RX (EQ 12) (SamplesPerBit 32) (Corner \"Slow\"))";
    const std::vector<double> solo3 = RunInBlocks(eq3, wave, 1000);
    const std::vector<double> solo12 = RunInBlocks(eq12, wave, 1000);
    EXPECT_FALSE(SameBits(solo3, solo12));

    Instance a = Init(eq3), b = Init(eq12);
    std::vector<double> wa = wave, wb = wave, clocks(wave.size() + 1);
    for (size_t at = 0; at < wave.size(); at += 500) {
        Lib().getWave(wa.data() + at, 500, clocks.data(), nullptr, a.handle);
        Lib().getWave(wb.data() + at, 500, clocks.data(), nullptr, b.handle);
    }
    EXPECT_TRUE(SameBits(wa, solo3));
    EXPECT_TRUE(SameBits(wb, solo12));
    Lib().close(a.handle);
    Lib().close(b.handle);
}

namespace {

// Settled gain of the Bessel FIR, from an independent design: sample the
// order-4 Bessel response on the 128-point grid, inverse DFT directly, keep
// the 64 taps centred on time zero, sum them.
double BesselFirDcGain() {
    const int N = 128, T = 64;
    const double fs = 1e12, bandwidth = 1e11, w0 = 2.114;
    std::vector<std::complex<double>> H(N);
    for (int k = 0; k < N; ++k) {
        if (k == N / 2) continue;
        const int f = k < N / 2 ? k : k - N;
        const std::complex<double> s(0.0, (double(f) / N) * fs / (bandwidth * 0.5) * w0);
        H[k] = 105.0 / (s * s * s * s + 10.0 * s * s * s + 45.0 * s * s + 105.0 * s + 105.0);
    }
    double sum = 0.0;
    for (int n = 0; n < N; ++n) {
        const bool kept = n <= (T - 1) / 2 || n >= N - T / 2;
        if (!kept) continue;
        std::complex<double> h = 0.0;
        for (int k = 0; k < N; ++k) h += H[k] * std::polar(1.0, 2.0 * M_PI * k * n / N);
        sum += h.real() / N;
    }
    return sum;
}

}  // namespace

TEST_F(AmiLibrary, AStepSettlesAtEachSettingsDcGainTimesTheFirGain) {
    // gain, p1, p2 (= p3), z of each setting, rad/s.
    const double rows[16][4] = {
        {2.474715933435302e+21, -43324029256.126625, -43488494536.432076, -16113544486.629667},
        {6.621960664120328e+21, -60426534834.64518, -60361959054.89788, -16272426330.289875},
        {1.1408111880799817e+22, -70642519552.5008, -68929048163.26932, -14508305629.456228},
        {1.344216428458356e+22, -68374377594.08407, -67619681929.740906, -11518429460.13285},
        {1.5317656602024188e+22, -67172916678.823494, -66967051465.48886, -9762219368.038774},
        {1.751832057693429e+22, -66705043350.443344, -66703626805.35099, -8452586097.84822},
        {1.8622650878688378e+22, -65437303092.756905, -64803316832.30909, -7392399378.972589},
        {2.0519274177800037e+22, -65168480364.8459, -64559732357.31558, -6646618872.582765},
        {2.1889791399722305e+22, -63882733945.41437, -64164321772.78504, -6053946916.316615},
        {2.3846021562242813e+22, -63691167946.633286, -64332290733.322, -5592187686.702368},
        {2.347861293690296e+22, -61590281006.46078, -61595603588.91071, -5045602487.916522},
        {2.7691532723703855e+22, -66510368310.30014, -62566608527.605316, -4771050581.462967},
        {2.8617485907657648e+22, -57670682630.23383, -66222085478.77502, -4549577430.959268},
        {2.8530429609796027e+22, -61259906857.13028, -62050945025.40035, -4248687409.770487},
        {2.8966423040967494e+22, -61947822989.08587, -60015773519.02865, -3981962643.791301},
        {3.2089216175319944e+22, -58070059211.42627, -63959662413.519035, -3871711421.571445},
    };
    const double fir = BesselFirDcGain();
    for (int k = 0; k < 16; ++k) {
        const double* r = rows[k];
        const double dc = r[0] * (-r[3]) / ((-r[1]) * (-r[2]) * (-r[2]));
        Instance in = Init("(KV2_RX (EQ " + std::to_string(k) + ") (SamplesPerBit 32))");
        std::vector<double> wave(20000, 1.0), clocks(2);
        EXPECT_EQ(Lib().getWave(wave.data(), long(wave.size()), clocks.data(), nullptr, in.handle), 1);
        EXPECT_NEAR(wave.back(), dc * fir, 1e-9) << "setting " << k;
        EXPECT_EQ(wave[5], 0.0);  // the jitter block's delay: nothing arrives yet
        Lib().close(in.handle);
    }
}
