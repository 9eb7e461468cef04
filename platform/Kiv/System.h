// The process's clock.
#pragma once

namespace Kiv::System {

// Seconds since 1970-01-01 00:00 UTC, with fractions.
double currentTime();

} // namespace Kiv::System
