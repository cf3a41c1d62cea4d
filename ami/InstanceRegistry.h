// InstanceRegistry: the process-wide set of live model instances. The entry
// points look a handle up here instead of reading through it, so a wrong
// handle from the host (a stray pointer, an unmapped address, a truncated
// value, an instance already closed) is refused without being touched.
//
// Limitation: handles are instance addresses, so a stale handle whose
// address the allocator has given to a newer instance that is still open is
// taken for that newer instance.
#pragma once

namespace InstanceRegistry {

// Records a new instance; false when there is no memory to record it.
bool Add(const void* instance) noexcept;

// Whether the address belongs to a live instance. Never dereferences it.
bool Contains(const void* instance) noexcept;

// Forgets a live instance; false when it was not live (so only one of two
// racing closes of the same handle goes on to destroy it).
bool Remove(const void* instance) noexcept;

}  // namespace InstanceRegistry
