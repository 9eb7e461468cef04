#include "Pello/Slab.h"

#include "Pello/ThreadSafety.h"

#include <array>
#include <mutex>
#include <new>

#if defined(__SANITIZE_ADDRESS__)
#define PELLO_SLAB_USES_HEAP 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define PELLO_SLAB_USES_HEAP 1
#endif
#endif

namespace Pello {

namespace {

#ifdef PELLO_SLAB_USES_HEAP
constexpr bool usesHeap = true;
#else
constexpr bool usesHeap = false;
#endif

constexpr std::size_t granule = 16;
constexpr std::size_t chunkSize = std::size_t{256} * 1024;

struct FreeBlock {
   FreeBlock* next;
};

class Slab {
 public:
   void* allocate(std::size_t granules) {
      FreeBlock*& head = free_[granules];
      if (head == nullptr) {
         return cut(granules * granule);
      }
      FreeBlock* block = head;
      head = block->next;
      return block;
   }

   void free(void* memory, std::size_t granules) noexcept {
      free_[granules] = new (memory) FreeBlock{free_[granules]};
   }

   std::size_t reserved() const noexcept { return reserved_; }

 private:
   void* cut(std::size_t size) {
      if (static_cast<std::size_t>(chunkEnd_ - chunkNext_) < size) {
         addChunk();
      }
      void* memory = chunkNext_;
      chunkNext_ += size;
      return memory;
   }

   // What is left of the old chunk becomes one free block, so that nothing is lost. It does so
   // only when there is a new chunk: else the remainder would be free and still be cut from.
   void addChunk() {
      auto* chunk = static_cast<std::byte*>(::operator new(chunkSize));
      if (chunkNext_ != chunkEnd_) {
         free(chunkNext_, static_cast<std::size_t>(chunkEnd_ - chunkNext_) / granule);
      }
      chunkNext_ = chunk;
      chunkEnd_ = chunkNext_ + chunkSize;
      reserved_ += chunkSize;
   }

   std::array<FreeBlock*, slabLargest / granule + 1> free_{};
   std::byte* chunkNext_ = nullptr;
   std::byte* chunkEnd_ = nullptr;
   std::size_t reserved_ = 0;
};

constinit Slab slab;
constinit std::mutex slabMutex;

std::unique_lock<std::mutex> lockIfShared() {
   return threadSafe() ? std::unique_lock{slabMutex} : std::unique_lock<std::mutex>{};
}

bool isSmall(std::size_t size) {
   return !usesHeap && size <= slabLargest;
}

// A request of no bytes still gets an address of its own.
std::size_t granulesOf(std::size_t size) {
   return size == 0 ? 1 : (size + granule - 1) / granule;
}

} // namespace

void* slabAllocate(std::size_t size) {
   if (!isSmall(size)) {
      return ::operator new(size);
   }
   if (!threadSafe()) [[likely]] {
      return slab.allocate(granulesOf(size));
   }
   const auto lock = lockIfShared();
   return slab.allocate(granulesOf(size));
}

void slabFree(void* memory, std::size_t size) noexcept {
   if (memory == nullptr) {
      return;
   }
   if (!isSmall(size)) {
      ::operator delete(memory);
      return;
   }
   if (!threadSafe()) [[likely]] {
      slab.free(memory, granulesOf(size));
      return;
   }
   const auto lock = lockIfShared();
   slab.free(memory, granulesOf(size));
}

std::size_t slabReserved() noexcept {
   const auto lock = lockIfShared();
   return slab.reserved();
}

} // namespace Pello
