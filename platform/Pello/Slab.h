// The slab allocator behind every framework object and every long string: `slabAllocate` and
// `slabFree`. Relies on nothing but the operating system's heap.
//
// Small requests are rounded up to 16 bytes and served from a free list per size; when the list is
// empty they are cut from one common chunk, so that what is made together (a rule, its filter, its
// action, its name) lies together. Freed memory goes back to its list and is used again, never to
// the operating system: a switch's agent reaches its peak once and stays near it. Under
// AddressSanitizer every request goes to the heap, so that a use after free is seen.
#pragma once

#include "Pello/Types.h"

#include <cstddef>

namespace Pello {

// Requests above this many bytes go straight to the heap.
inline constexpr std::size_t slabLargest = 512;

// Returns `size` bytes aligned to 16. Throws `std::bad_alloc` when memory is exhausted. Safe to
// call from several threads while the thread-safety switch is on.
void* slabAllocate(std::size_t size);

// Gives back what `slabAllocate(size)` returned; `size` must be the same. Null is allowed.
void slabFree(void* memory, std::size_t size) noexcept;

// How many bytes the slab has taken from the heap for its chunks so far.
std::size_t slabReserved() noexcept;

} // namespace Pello
