#include "Pello/Slab.h"

#include <mutex>
#include <new>

namespace Pello {

constinit Detail::FreeBlock* Detail::slabFreeBlocks[slabLargest / slabGranule + 1] = {};

namespace {

using Detail::FreeBlock;
using Detail::slabGranule;

// Large enough that taking a chunk is rare, and a multiple of the granule, so that no rest is lost.
constexpr std::size_t chunkSize = std::size_t{256} * 1024;

// The part of the newest chunk that is not cut yet. All sizes share it. Like everything here it
// is initialised at compile time: the constructors of other libraries allocate before this source's
// own would have run.
constinit std::byte* chunkNext = nullptr;
constinit std::byte* chunkEnd = nullptr;
constinit std::size_t reserved = 0;
constinit std::mutex slabMutex;

void freeGranules(void* memory, std::size_t granules) noexcept {
   FreeBlock*& head = Detail::slabFreeBlocks[granules];
   head = new (memory) FreeBlock{head};
}

// Takes a new chunk. The rest of the old one, which was too small for the present request, becomes
// one free block. That happens after the new chunk is there: if `new` threw in between, the rest
// would be in a free list and be cut from as well.
void addChunk() {
   auto* chunk = static_cast<std::byte*>(::operator new(chunkSize));
   if (chunkNext != chunkEnd) {
      freeGranules(chunkNext, static_cast<std::size_t>(chunkEnd - chunkNext) / slabGranule);
   }
   chunkNext = chunk;
   chunkEnd = chunk + chunkSize;
   reserved += chunkSize;
}

void* allocateGranules(std::size_t granules) {
   FreeBlock*& head = Detail::slabFreeBlocks[granules];
   if (head != nullptr) {
      return std::exchange(head, head->next);
   }
   const std::size_t size = granules * slabGranule;
   if (static_cast<std::size_t>(chunkEnd - chunkNext) < size) {
      addChunk();
   }
   return std::exchange(chunkNext, chunkNext + size);
}

// A process with one thread pays for no lock.
std::unique_lock<std::mutex> lockIfShared() {
   return threadSafe() ? std::unique_lock{slabMutex} : std::unique_lock<std::mutex>{};
}

bool isSmall(std::size_t size) {
   return !Detail::slabUsesHeap && size <= slabLargest;
}

} // namespace

void* Detail::slabAllocateSlowly(std::size_t size) {
   if (!isSmall(size)) {
      return ::operator new(size);
   }
   const auto lock = lockIfShared();
   return allocateGranules(slabGranules(size));
}

void Detail::slabFreeSlowly(void* memory, std::size_t size) noexcept {
   if (memory == nullptr) {
      return;
   }
   if (!isSmall(size)) {
      ::operator delete(memory);
      return;
   }
   const auto lock = lockIfShared();
   freeGranules(memory, slabGranules(size));
}

std::size_t slabReserved() noexcept {
   const auto lock = lockIfShared();
   return reserved;
}

} // namespace Pello
