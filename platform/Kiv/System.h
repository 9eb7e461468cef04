// `currentTime`: the wall clock. Relies on POSIX only.
#pragma once

#include <ctime>

namespace Kiv::System {

// Seconds since 1970-01-01 00:00 UTC, with fractions. The wall clock may be set, so that a later
// call returns an earlier time. May be called from any thread.
inline double currentTime() noexcept {
   timespec now{};
   ::clock_gettime(CLOCK_REALTIME, &now); // cannot fail for this clock
   return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

} // namespace Kiv::System
