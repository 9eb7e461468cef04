// What this library does with fmt: how fmt prints a `String`, and `fmtrace`, which formats a text
// trace. Relies on fmt, which is costly to compile: only what formats includes this header, and no
// other header of this library does.
#pragma once

#include "Pello/String.h"
#include "Pello/TextTrace.h"

#include <fmt/core.h>

// Prints the characters. Takes the format specifications of strings, such as a width.
template <>
struct fmt::formatter<Pello::String> : fmt::formatter<fmt::string_view> {
   template <class Context>
   auto format(const Pello::String& text, Context& context) const {
      const std::string_view view = text.view();
      return fmt::formatter<fmt::string_view>::format({view.data(), view.size()}, context);
   }
};

namespace Pello {

// Formats one trace and hands it to the sink that `traceSinkIs` has set. Whether the level of
// `point` is enabled is the caller's business: this function does not ask. `point` and what it
// points to must exist during the call. Throws `fmt::format_error` when the arguments do not fit
// the format, and what the sink throws. May be called from any thread.
void fmtrace(const TracePoint& point, fmt::string_view format, fmt::format_args args);

} // namespace Pello
