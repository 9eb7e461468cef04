#include "Pello/Slab.h"

#include <mutex>
#include <new>

namespace Pello {

constinit Detail::FreeBlock* Detail::slabFreeBlocks[slabLargest / slabGranule + 1] = {};

namespace {

using Detail::FreeBlock;
using Detail::slabGranule;

constexpr std::size_t chunkSize = std::size_t{256} * 1024;

// The chunk that fresh memory is cut from, for all sizes.
constinit std::byte* chunkNext = nullptr;
constinit std::byte* chunkEnd = nullptr;
constinit std::size_t reserved = 0;
constinit std::mutex slabMutex;

void freeGranules(void* memory, std::size_t granules) noexcept {
   FreeBlock*& head = Detail::slabFreeBlocks[granules];
   head = new (memory) FreeBlock{head};
}

// What is left of the old chunk becomes one free block, so that nothing is lost. It does so only
// when there is a new chunk: else the remainder would be free and still be cut from.
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
