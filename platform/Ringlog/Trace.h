// `RINGLOG_TRACE(level, format, arguments…)`: one trace point. It always writes to the ring, and to
// the text trace when the level of its source is enabled. Relies on the ring and the text trace.
//
// Requires a `Pello::TraceSource` named `traceSource` in scope, with static storage. The trace
// names the class by `kivClassName`, which every entity class has; a free function finds the empty
// one below. The trace names the enclosing function; `RINGLOG_TRACE_OF(function, level, format,
// arguments…)` names another function, for a helper that does part of an operation's work.
//
// `level` is a constant from 0 to `Pello::traceLevelMost`; TextTrace.h says what each level is for.
// `format` is a literal in the notation of fmt, with one replacement field per argument; fewer or
// more do not compile. Arguments are of the types of Codec.h and evaluated exactly once, also while
// the text trace is off. They should be cheap to compute: the ring takes them raw, so a text that
// is built for the trace costs more than the trace.
#pragma once

#include "Ringlog/Ring.h"
#include "Ringlog/detail/TextArguments.h"

#include <array>
#include <span>
#include <type_traits>

// The class name in the traces of free functions: empty. Members of an entity class find the
// `kivClassName` of their class first, by the rules of name lookup.
inline constexpr const char* kivClassName = "";

namespace Ringlog {

namespace Detail {

// Formats the text trace of `site` and hands it to the sink (`Pello::traceSinkIs`). Throws
// fmt::format_error when a format specification does not suit its argument, and what the sink
// throws.
void writeText(const CallSite& site, std::span<const ErasedArgument> arguments);

// Out of line and marked cold: the text trace is usually off, and its code must not fill the
// instruction cache between the records of the ring.
template <class... Arguments>
[[gnu::cold, gnu::noinline]] void eraseAndWriteText(const CallSite& site,
                                                    const Arguments&... arguments) {
   writeText(site, std::array<ErasedArgument, sizeof...(Arguments)>{eraseArgument(arguments)...});
}

} // namespace Detail

// Writes one trace of `site`. The format must be that of the site. It is a parameter only to be
// checked against the types of the arguments while it is compiled (`CheckedFormat`).
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

// `function` must be a constant expression: a literal, or, where several operations share a step, a
// constant member of the step's template argument. Each instance of the template then has a call
// site of its own, which names its operation.
#define RINGLOG_TRACE_OF(function, level, format, ...)                                             \
   do {                                                                                            \
      static constinit Ringlog::CallSite ringlogCallSite{                                          \
            {&traceSource, __LINE__, kivClassName, function, format, level}};                      \
      Ringlog::trace(ringlogCallSite, format __VA_OPT__(, ) __VA_ARGS__);                          \
   } while (false)

// Traces the entry into an operation, at level 8, with an empty text.
#define RINGLOG_ENTRY() RINGLOG_TRACE(8, "")
