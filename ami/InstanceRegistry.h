// InstanceRegistry: the process-wide set of live model instances. The entry
// points look a handle up here instead of reading through it, so a wrong
// handle from the host (a stray pointer, an unmapped address, a truncated
// value, an instance already closed) is refused without being touched.
//
// Handles are instance addresses, so a stale handle would be taken for a
// newer instance that the allocator put at the same address. Simulators that
// close and re-open per channel or corner hit exactly that, so the memory of
// a closed instance is held back (Retire) for the next kQuarantine closes
// before it is freed: a stale handle can alias a new instance only after that
// many other instances have been closed.
#pragma once

#include <cstddef>

namespace InstanceRegistry {

constexpr size_t kQuarantine = 256;

// Records a new instance; false when there is no memory to record it.
bool Add(const void* instance) noexcept;

// Whether the address belongs to a live instance. Never dereferences it.
bool Contains(const void* instance) noexcept;

// Forgets a live instance; false when it was not live (so only one of two
// racing closes of the same handle goes on to destroy it).
bool Remove(const void* instance) noexcept;

// Takes the memory of a removed, destroyed instance; frees the memory retired
// kQuarantine closes ago with `release`. Without memory for the queue the
// block is freed at once.
void Retire(void* memory, void (*release)(void*)) noexcept;

}  // namespace InstanceRegistry
