// The process-wide thread-safety switch, and the counter whose operations are atomic only when it
// is on. Everything that counts (references, allocations) counts with `SwitchedCounter`.
#pragma once

#include "Pello/Types.h"

#include <atomic>

namespace Pello {

namespace Detail {
extern constinit bool threadSafe;
} // namespace Detail

// Whether counted references may be shared between threads. Off by default.
inline bool threadSafe() noexcept {
   return Detail::threadSafe;
}

// Turns the switch. Call it while the process has one thread only: a reference that is counted
// plainly by one thread and atomically by another loses counts.
void threadSafeIs(bool on) noexcept;

// A counter that pays for atomic arithmetic only when threads may share it.
template <class T>
class SwitchedCounter {
 public:
   constexpr SwitchedCounter() noexcept = default;
   constexpr explicit SwitchedCounter(T start) noexcept : value_{start} {}

   T value() const noexcept { return value_.load(std::memory_order_relaxed); }

   // Adds `step`.
   void add(T step) noexcept {
      if (threadSafe()) {
         value_.fetch_add(step, std::memory_order_relaxed);
      } else {
         value_.store(value() + step, std::memory_order_relaxed);
      }
   }

   // Takes `step` away and returns what is left. The caller that sees 0 also sees every write that
   // other threads made before they took their own share away.
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
