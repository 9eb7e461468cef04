// How fmt prints this library's types.
#pragma once

#include "Pello/String.h"

#include <fmt/core.h>

template <>
struct fmt::formatter<Pello::String> : fmt::formatter<fmt::string_view> {
   template <class Context>
   auto format(const Pello::String& text, Context& context) const {
      const std::string_view view = text.view();
      return fmt::formatter<fmt::string_view>::format({view.data(), view.size()}, context);
   }
};
