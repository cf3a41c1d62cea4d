// InstanceRegistry: a set under a mutex, with a per-thread memory of the
// last handle found live so that a simulator streaming small blocks through
// its instance rarely takes the lock.
#include "ami/InstanceRegistry.h"

#include <atomic>
#include <cstdint>
#include <deque>
#include <mutex>
#include <new>
#include <unordered_set>

namespace InstanceRegistry {

namespace {

struct Retired {
    void* memory;
    void (*release)(void*);
};

struct Registry {
    std::mutex lock;
    std::unordered_set<const void*> live;
    std::deque<Retired> quarantine;  // oldest first

    ~Registry() {
        for (const Retired& r : quarantine) r.release(r.memory);
    }
};

Registry& TheRegistry() {
    static Registry registry;
    return registry;
}

// Advanced by every removal: a thread's remembered handle is only trusted
// while no instance has been closed since it was found live.
std::atomic<uint64_t> g_generation{0};

struct LastFound {
    const void* instance;
    uint64_t generation;
};
// Initial-exec: 16 bytes of the static TLS space the loader keeps for
// libraries opened later, reached without a __tls_get_addr call per entry
// point. (The dynamic model also trips LeakSanitizer's TLS scan with this
// toolchain's runtime, crashing it at exit in the sanitizer builds.)
#ifdef _WIN32
thread_local LastFound t_last = {nullptr, 0};  // Windows has no ELF TLS models
#else
__attribute__((tls_model("initial-exec"))) thread_local LastFound t_last = {nullptr, 0};
#endif

}  // namespace

bool Add(const void* instance) noexcept {
    Registry& r = TheRegistry();
    std::lock_guard<std::mutex> guard(r.lock);
    try {
        return r.live.insert(instance).second;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

bool Contains(const void* instance) noexcept {
    if (instance == nullptr) return false;
    if (t_last.instance == instance && t_last.generation == g_generation.load(std::memory_order_acquire))
        return true;
    Registry& r = TheRegistry();
    std::lock_guard<std::mutex> guard(r.lock);
    if (r.live.count(instance) == 0) return false;
    t_last = {instance, g_generation.load(std::memory_order_relaxed)};
    return true;
}

bool Remove(const void* instance) noexcept {
    if (instance == nullptr) return false;
    Registry& r = TheRegistry();
    std::lock_guard<std::mutex> guard(r.lock);
    if (r.live.erase(instance) == 0) return false;
    g_generation.fetch_add(1, std::memory_order_release);
    return true;
}

void Retire(void* memory, void (*release)(void*)) noexcept {
    Retired oldest{nullptr, nullptr};
    {
        Registry& r = TheRegistry();
        std::lock_guard<std::mutex> guard(r.lock);
        try {
            r.quarantine.push_back({memory, release});
        } catch (const std::bad_alloc&) {
            oldest = {memory, release};
        }
        if (oldest.memory == nullptr && r.quarantine.size() > kQuarantine) {
            oldest = r.quarantine.front();
            r.quarantine.pop_front();
        }
    }
    if (oldest.memory != nullptr) oldest.release(oldest.memory);
}

}  // namespace InstanceRegistry
