// `RINGLOG_TRACE(level, format, arguments…)`: one trace point. It always writes to the ring, and to
// the text trace when the level of its source is enabled. Relies on the ring and the text trace.
//
// In scope there must be a `Pello::TraceSource` named `traceSource`. The class is the one whose
// member traces (`kivClassName`, which every entity has), none for a free function. The function is
// the enclosing one; `RINGLOG_TRACE_OF(function, level, format, arguments…)` names another, for a
// function that does part of an operation's work. Arguments are evaluated once; they must be cheap
// to have, because nothing is formatted for the ring.
#pragma once

#include "Pello/Format.h"
#include "Ringlog/Ring.h"

#include <fmt/format.h>

// What a free function calls its class.
inline constexpr const char* kivClassName = "";

namespace Ringlog {

template <class... Arguments>
[[gnu::cold, gnu::noinline]] void formatText(const CallSite& site,
                                             fmt::format_string<const Arguments&...> format,
                                             const Arguments&... arguments) {
   Pello::fmtrace(site.point, format, fmt::make_format_args(arguments...));
}

template <class... Arguments>
void trace(CallSite& site, fmt::format_string<const Arguments&...> format,
           const Arguments&... arguments) {
   record(site, arguments...);
   if (site.point.source->enabled(site.point.level)) [[unlikely]] {
      formatText<Arguments...>(site, format, arguments...);
   }
}

} // namespace Ringlog

#define RINGLOG_TRACE(level, format, ...)                                                          \
   RINGLOG_TRACE_OF(__func__, level, format __VA_OPT__(, ) __VA_ARGS__)

// `function` is a constant: a literal, or, where several operations share the work, a member of a
// template argument, so that each operation has trace points of its own.
#define RINGLOG_TRACE_OF(function, level, format, ...)                                             \
   do {                                                                                            \
      static constinit Ringlog::CallSite ringlogCallSite{                                          \
            {&traceSource, __LINE__, kivClassName, function, format, level}};                      \
      Ringlog::trace(ringlogCallSite, format __VA_OPT__(, ) __VA_ARGS__);                          \
   } while (false)

// Entry into an operation.
#define RINGLOG_ENTRY() RINGLOG_TRACE(8, "")
