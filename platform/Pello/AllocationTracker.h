// `AllocationTracker`: how many objects of a type exist, and how large one is. Every entity type
// has one, its static member `memAllocationTracker_`, and allocates its objects through it. Relies
// on the slab.
//
// Several threads may use a tracker while the thread-safety switch is on.
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
   // How many objects exist now.
   U64 live() const noexcept { return live_.value(); }
   // How many objects have been made since the process began. Never decreases.
   U64 total() const noexcept { return total_.value(); }

   // Returns `size` bytes, aligned to 16, and counts one object. Throws `std::bad_alloc`, and then
   // counts nothing.
   void* allocate(std::size_t size) {
      void* memory = slabAllocate(size);
      live_.add(1);
      total_.add(1);
      return memory;
   }

   // Gives back what `allocate(size)` of this tracker returned; `size` must be the same. `memory`
   // must not be null, because the object is counted out in any case.
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
