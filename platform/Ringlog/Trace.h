// `RINGLOG_TRACE(level, format, arguments…)`: one trace point. It always writes to the ring, and to
// the text trace when the level of its source is enabled. Relies on the ring and the text trace.
//
// In scope there must be a `Pello::TraceSource` named `traceSource`. The class is the one whose
// member traces (`kivClassName`, which every entity has), none for a free function. The function is
// the enclosing one; `RINGLOG_TRACE_OF(function, level, format, arguments…)` names another, for a
// function that does part of an operation's work. Arguments are evaluated once; they must be cheap
// to have, because nothing is formatted for the ring.
#pragma once

#include "Ringlog/Ring.h"
#include "Ringlog/detail/TextArguments.h"

#include <array>
#include <span>
#include <type_traits>

// What a free function calls its class.
inline constexpr const char* kivClassName = "";

namespace Ringlog {

namespace Detail {

// Formats the text trace of `site` and hands it to the sink.
void writeText(const CallSite& site, std::span<const ErasedArgument> arguments);

template <class... Arguments>
[[gnu::cold, gnu::noinline]] void eraseAndWriteText(const CallSite& site,
                                                    const Arguments&... arguments) {
   writeText(site, std::array<ErasedArgument, sizeof...(Arguments)>{eraseArgument(arguments)...});
}

} // namespace Detail

// One trace of `site`. The format, which is that of the site, must have one replacement field per
// argument; otherwise it does not compile.
template <class... Arguments>
void trace(CallSite& site, std::type_identity_t<CheckedFormat<Arguments...>> /*format*/,
           const Arguments&... arguments) {
   record(site, arguments...);
   if (site.point.source->enabled(site.point.level)) [[unlikely]] {
      Detail::eraseAndWriteText(site, arguments...);
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
