// `timeText` and `timeOf`: points in time as `postcard trace` prints and reads them, in the format
// of RFC 3339 and to the microsecond. Relies on the standard library.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Postcard::Cli::Trace {

// Microseconds since 1970-01-01 00:00 UTC.
using Microseconds = std::int64_t;

// The microsecond nearest to `seconds` since 1970-01-01 00:00 UTC. Times before the year 1970 or
// after the year 9999 become the first or the last second of that range, because a damaged ring may
// hold any number. `seconds` must not be NaN.
Microseconds microsecondsOf(double seconds);

// `time` in UTC and to the microsecond, such as `2025-11-21T11:36:51.123456Z`. `time` must lie in
// the years 1970 to 9999.
std::string timeText(Microseconds time);

// The time that `text` means. It is either a time of RFC 3339 such as `2025-11-21T11:36:51.5Z`, or
// an age that counts back from `now`: a whole number and one of the units s, m, h, d. Absent for
// any other text, and for an age of more than 36,600 days.
std::optional<Microseconds> timeOf(std::string_view text, Microseconds now);

} // namespace Postcard::Cli::Trace
