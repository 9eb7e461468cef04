// The slab allocator behind entities, the characters of strings, and the nodes of ordered
// collections: `slabAllocate` and `slabFree`. Relies on the C++ heap for its chunks.
//
// Small requests are rounded up to a multiple of 16 bytes and served from a free list per size.
// When the list is empty, memory is cut from one chunk that all sizes share, so that what is made
// together (a rule, its filter, its action, its name) lies together. Freed memory returns to the
// list of its size and never to the operating system, because a switch's agent reaches its peak
// once and stays near it. Under AddressSanitizer every request goes to the heap, so that the
// sanitizer sees a use after free.
#pragma once

#include "Pello/ThreadSafety.h"
#include "Pello/Types.h"

#include <cstddef>
#include <new>
#include <utility>

#if defined(__SANITIZE_ADDRESS__)
#define PELLO_SLAB_USES_HEAP 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define PELLO_SLAB_USES_HEAP 1
#endif
#endif

namespace Pello {

// Requests above this many bytes go straight to the heap.
inline constexpr std::size_t slabLargest = 512;

namespace Detail {

#ifdef PELLO_SLAB_USES_HEAP
inline constexpr bool slabUsesHeap = true;
#else
inline constexpr bool slabUsesHeap = false;
#endif

// In bytes. All sizes and addresses of the slab are multiples of it.
inline constexpr std::size_t slabGranule = 16;

// What stands at the beginning of a block while it is free.
struct FreeBlock {
   FreeBlock* next;
};

// The first free block of each size, which is counted in granules; null for none. Index 0 is
// unused.
extern constinit FreeBlock* slabFreeBlocks[slabLargest / slabGranule + 1];

// How many granules `size` bytes need. At least one, so that a request of no bytes gets an address
// of its own.
constexpr std::size_t slabGranules(std::size_t size) noexcept {
   return size == 0 ? 1 : (size + slabGranule - 1) / slabGranule;
}

// Whether a request of `size` bytes may use the free lists without locking them.
inline bool slabIsPlain(std::size_t size) noexcept {
   return !slabUsesHeap && size <= slabLargest && !Pello::threadSafe();
}

// What the inline functions below leave over: an empty free list, a large request, the
// thread-safety switch, the heap of AddressSanitizer.
void* slabAllocateSlowly(std::size_t size);
void slabFreeSlowly(void* memory, std::size_t size) noexcept;

} // namespace Detail

// Returns `size` bytes aligned to 16, which the caller gives back with `slabFree` and the same
// size. Throws `std::bad_alloc` when memory is exhausted. May be called from several threads while
// the thread-safety switch is on.
inline void* slabAllocate(std::size_t size) {
   if (Detail::slabIsPlain(size)) [[likely]] {
      Detail::FreeBlock*& head = Detail::slabFreeBlocks[Detail::slabGranules(size)];
      if (head != nullptr) [[likely]] {
         return std::exchange(head, head->next);
      }
   }
   return Detail::slabAllocateSlowly(size);
}

// Gives back what `slabAllocate(size)` returned; `size` must be the same, because a block does not
// record it. Null is allowed and has no effect. Threads as for `slabAllocate`.
inline void slabFree(void* memory, std::size_t size) noexcept {
   if (memory != nullptr && Detail::slabIsPlain(size)) [[likely]] {
      Detail::FreeBlock*& head = Detail::slabFreeBlocks[Detail::slabGranules(size)];
      head = new (memory) Detail::FreeBlock{head};
      return;
   }
   Detail::slabFreeSlowly(memory, size);
}

// How many bytes the slab has taken from the heap for its chunks. Never decreases. Requests above
// `slabLargest` are not counted.
std::size_t slabReserved() noexcept;

} // namespace Pello
