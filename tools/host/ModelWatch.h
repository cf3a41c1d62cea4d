// ModelWatch: which entry point of the model each thread is in and since
// when, kept in memory shared with a watchdog process. amihost runs the model
// in a worker process; when the worker dies or a call does not return in
// time, the watchdog (the parent) reads here what the model was doing and
// says so. Without a watch installed every call costs nothing but a check.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace amihost {

struct ModelWatchSlot {
    std::atomic<int64_t> nStartNs{0};  // monotonic start of the call in progress; 0: none
    std::atomic<int> nStage{0};        // index into ModelWatch::StageName
    char sLabel[64] = {};              // the run's label ("EQ 5"), NUL-terminated
};

struct ModelWatchShared {
    static constexpr int kSlots = 64;
    std::atomic<int> nFinished{0};     // the worker got back from the run and is ending normally
    std::atomic<unsigned> nNextSlot{0};
    ModelWatchSlot slots[kSlots];
};

class ModelWatch {
public:
    enum Stage { kNone = 0, kInit, kGetWave, kClose };
    static const char* StageName(int stage);  // "AMI_Init", ...

    // Shared anonymous memory, inherited across fork; nullptr on failure.
    static ModelWatchShared* Create();
    // In the worker: calls are recorded from now on.
    static void Install(ModelWatchShared* shared);

    static int64_t NowNs();

    // Marks the calling thread as inside `stage` of the run `label` for its
    // lifetime.
    class Call {
    public:
        Call(Stage stage, const std::string& label);
        ~Call();
        Call(const Call&) = delete;
        Call& operator=(const Call&) = delete;

    private:
        ModelWatchSlot* m_pSlot = nullptr;
    };

    // The call in progress that started first: "AMI_GetWave of EQ 5", with
    // its start in *startNs; "" when no call is in progress.
    static std::string Oldest(const ModelWatchShared& shared, int64_t* startNs);
};

}  // namespace amihost
