// Points in time as `postcard trace` shows and reads them: RFC 3339, to the microsecond.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Postcard::Cli {

// Microseconds since 1970-01-01 00:00 UTC.
using Microseconds = std::int64_t;

// The nearest microsecond of `seconds` since 1970, from the year 1970 to the year 9999.
Microseconds microsecondsOf(double seconds);

// `2025-11-21T11:36:51.123456Z`. Requires a time from the year 1970 to the year 9999.
std::string timeText(Microseconds time);

// The time that a text means: an RFC 3339 time such as `2025-11-21T11:36:51.5Z`, or an age before
// `now`, a number and one of the units s, m, h, d. Nothing for any other text.
std::optional<Microseconds> timeOf(std::string_view text, Microseconds now);

} // namespace Postcard::Cli
