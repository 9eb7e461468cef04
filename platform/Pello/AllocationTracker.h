// `AllocationTracker`: what a type's objects cost right now. Every framework type has one, its
// static member `memAllocationTracker_`, and allocates through it. Relies on the slab.
#pragma once

#include "Pello/Slab.h"
#include "Pello/ThreadSafety.h"

#include <cstddef>
#include <string_view>

namespace Pello {

class AllocationTracker {
 public:
   // `typeName` must live as long as the tracker; `objectSize` is in bytes.
   constexpr AllocationTracker(std::string_view typeName, std::size_t objectSize) noexcept
      : typeName_{typeName}, objectSize_{objectSize} {}

   std::string_view typeName() const noexcept { return typeName_; }
   // Bytes of one object of the type itself; a derived object may be larger.
   std::size_t objectSize() const noexcept { return objectSize_; }
   // Objects that exist.
   U64 live() const noexcept { return live_.value(); }
   // Objects ever made.
   U64 total() const noexcept { return total_.value(); }

   void* allocate(std::size_t size) {
      void* memory = slabAllocate(size);
      live_.add(1);
      total_.add(1);
      return memory;
   }

   void free(void* memory, std::size_t size) noexcept {
      live_.subtract(1);
      slabFree(memory, size);
   }

 private:
   std::string_view typeName_;
   std::size_t objectSize_;
   SwitchedCounter<U64> live_;
   SwitchedCounter<U64> total_;
};

} // namespace Pello
