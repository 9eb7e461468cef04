// The slab allocator behind every framework object and every long string: `slabAllocate` and
// `slabFree`. Relies on nothing but the operating system's heap.
//
// Small requests are rounded up to 16 bytes and served from a free list per size; when the list is
// empty they are cut from one common chunk, so that what is made together (a rule, its filter, its
// action, its name) lies together. Freed memory goes back to its list and is used again, never to
// the operating system: a switch's agent reaches its peak once and stays near it. Under
// AddressSanitizer every request goes to the heap, so that a use after free is seen.
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

inline constexpr std::size_t slabGranule = 16;

struct FreeBlock {
   FreeBlock* next;
};

// The free blocks by their size in granules.
extern constinit FreeBlock* slabFreeBlocks[slabLargest / slabGranule + 1];

// A request of no bytes still gets an address of its own.
constexpr std::size_t slabGranules(std::size_t size) noexcept {
   return size == 0 ? 1 : (size + slabGranule - 1) / slabGranule;
}

// Whether the free lists may be used as they are.
inline bool slabIsPlain(std::size_t size) noexcept {
   return !slabUsesHeap && size <= slabLargest && !Pello::threadSafe();
}

// Everything else: no free block, large requests, several threads.
void* slabAllocateSlowly(std::size_t size);
void slabFreeSlowly(void* memory, std::size_t size) noexcept;

} // namespace Detail

// Returns `size` bytes aligned to 16. Throws `std::bad_alloc` when memory is exhausted. Safe to
// call from several threads while the thread-safety switch is on.
inline void* slabAllocate(std::size_t size) {
   if (Detail::slabIsPlain(size)) [[likely]] {
      Detail::FreeBlock*& head = Detail::slabFreeBlocks[Detail::slabGranules(size)];
      if (head != nullptr) [[likely]] {
         return std::exchange(head, head->next);
      }
   }
   return Detail::slabAllocateSlowly(size);
}

// Gives back what `slabAllocate(size)` returned; `size` must be the same. Null is allowed.
inline void slabFree(void* memory, std::size_t size) noexcept {
   if (memory != nullptr && Detail::slabIsPlain(size)) [[likely]] {
      Detail::FreeBlock*& head = Detail::slabFreeBlocks[Detail::slabGranules(size)];
      head = new (memory) Detail::FreeBlock{head};
      return;
   }
   Detail::slabFreeSlowly(memory, size);
}

// How many bytes the slab has taken from the heap for its chunks so far.
std::size_t slabReserved() noexcept;

} // namespace Pello
