// The thread-safety switch of the process, `threadSafeIs`, and `SwitchedCounter`, whose operations
// are atomic only while the switch is on. Reference counts and allocation counts are such counters.
// Relies on nothing.
#pragma once

#include "Pello/Types.h"

#include <atomic>

namespace Pello {

namespace Detail {
extern constinit bool threadSafe;
} // namespace Detail

// Whether threads may share counted objects, strings and the slab. Off by default, because atomic
// arithmetic costs more than plain, and the plug-in lives on one thread.
inline bool threadSafe() noexcept {
   return Detail::threadSafe;
}

// Sets the switch. Must be called while the process has one thread: counts are lost when one thread
// counts plainly what another counts atomically.
void threadSafeIs(bool on) noexcept;

// A counter that is shared by threads while the switch is on. `T` is an unsigned integer.
template <class T>
class SwitchedCounter {
 public:
   constexpr SwitchedCounter() noexcept = default;
   constexpr explicit SwitchedCounter(T start) noexcept : value_{start} {}

   // With several threads the answer may be old when it arrives.
   T value() const noexcept { return value_.load(std::memory_order_relaxed); }

   // Adds `step`; wraps around past the largest `T`.
   void add(T step) noexcept {
      if (threadSafe()) {
         value_.fetch_add(step, std::memory_order_relaxed);
      } else {
         value_.store(value() + step, std::memory_order_relaxed);
      }
   }

   // Subtracts `step`, which must not exceed the value, and returns what is left. The thread that
   // receives 0 also sees every write that other threads made before their own subtraction, so it
   // may destroy what was counted.
   T subtract(T step) noexcept {
      if (threadSafe()) {
         return value_.fetch_sub(step, std::memory_order_acq_rel) - step;
      }
      const T left = value() - step;
      value_.store(left, std::memory_order_relaxed);
      return left;
   }

 private:
   std::atomic<T> value_{0};
};

} // namespace Pello
