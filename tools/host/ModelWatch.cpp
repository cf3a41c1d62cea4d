// ModelWatch: the shared slots and the per-thread bookkeeping.
#include "tools/host/ModelWatch.h"

#include <sys/mman.h>
#include <time.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace amihost {

namespace {

ModelWatchShared* g_pShared = nullptr;
thread_local ModelWatchSlot* t_pSlot = nullptr;

}  // namespace

const char* ModelWatch::StageName(int stage) {
    switch (stage) {
        case kInit: return "AMI_Init";
        case kGetWave: return "AMI_GetWave";
        case kClose: return "AMI_Close";
        default: return "the host";
    }
}

ModelWatchShared* ModelWatch::Create() {
    void* p = mmap(nullptr, sizeof(ModelWatchShared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return p == MAP_FAILED ? nullptr : new (p) ModelWatchShared;
}

void ModelWatch::Install(ModelWatchShared* shared) { g_pShared = shared; }

int64_t ModelWatch::NowNs() {
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return int64_t(t.tv_sec) * 1000000000 + t.tv_nsec;
}

ModelWatch::Call::Call(Stage stage, const std::string& label) {
    if (g_pShared == nullptr) return;
    if (t_pSlot == nullptr) {
        // More threads than slots share the last one; the watchdog then sees
        // one of them, which is enough to name a stage.
        const unsigned i = g_pShared->nNextSlot.fetch_add(1);
        t_pSlot = &g_pShared->slots[std::min<unsigned>(i, ModelWatchShared::kSlots - 1)];
    }
    m_pSlot = t_pSlot;
    const size_t n = std::min(label.size(), sizeof m_pSlot->sLabel - 1);
    std::memcpy(m_pSlot->sLabel, label.data(), n);
    m_pSlot->sLabel[n] = '\0';
    m_pSlot->nStage.store(stage, std::memory_order_relaxed);
    m_pSlot->nStartNs.store(NowNs(), std::memory_order_release);
}

ModelWatch::Call::~Call() {
    if (m_pSlot != nullptr) m_pSlot->nStartNs.store(0, std::memory_order_release);
}

std::string ModelWatch::Oldest(const ModelWatchShared& shared, int64_t* startNs) {
    const ModelWatchSlot* oldest = nullptr;
    int64_t first = 0;
    for (const ModelWatchSlot& s : shared.slots) {
        const int64_t t = s.nStartNs.load(std::memory_order_acquire);
        if (t != 0 && (oldest == nullptr || t < first)) oldest = &s, first = t;
    }
    if (startNs != nullptr) *startNs = first;
    if (oldest == nullptr) return "";
    char label[sizeof oldest->sLabel];
    std::memcpy(label, oldest->sLabel, sizeof label);
    label[sizeof label - 1] = '\0';
    const std::string name = StageName(oldest->nStage.load(std::memory_order_relaxed));
    return label[0] != '\0' ? name + " of " + label : name;
}

}  // namespace amihost
