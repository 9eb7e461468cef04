// What this library does with fmt: how it prints a `String`, and `fmtrace`, which formats a text
// trace. Included by whoever formats; no other header of this library brings fmt along. Relies on
// fmt.
#pragma once

#include "Pello/String.h"
#include "Pello/TextTrace.h"

#include <fmt/core.h>

template <>
struct fmt::formatter<Pello::String> : fmt::formatter<fmt::string_view> {
   template <class Context>
   auto format(const Pello::String& text, Context& context) const {
      const std::string_view view = text.view();
      return fmt::formatter<fmt::string_view>::format({view.data(), view.size()}, context);
   }
};

namespace Pello {

// Formats one trace and hands it to the sink. Call it only when the level is enabled. Throws
// `fmt::format_error` when the arguments do not fit the format.
void fmtrace(const TracePoint& point, fmt::string_view format, fmt::format_args args);

} // namespace Pello
