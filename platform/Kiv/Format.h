// How fmt prints the framework's values and enumerators: a value as its stream output, an
// enumerator as its name. Included by whoever formats one; no other header brings fmt along. Relies
// on fmt.
#pragma once

#include "Kiv/Enumeration.h"
#include "Kiv/detail/ValueOps.h"
#include "Pello/Format.h"

#include <fmt/format.h>

#include <string>
#include <string_view>

// Values made of attributes.
template <Kiv::RowValue T>
struct fmt::formatter<T> : fmt::formatter<fmt::string_view> {
   template <class Context>
   auto format(const T& value, Context& context) const {
      const std::string text = Kiv::valueText(value);
      return fmt::formatter<fmt::string_view>::format({text.data(), text.size()}, context);
   }
};

// Values with a text of their own.
template <Kiv::TextualValue T>
struct fmt::formatter<T> : fmt::formatter<fmt::string_view> {
   template <class Context>
   auto format(const T& value, Context& context) const {
      const auto& text = value.stringValue();
      const std::string_view view{text};
      return fmt::formatter<fmt::string_view>::format({view.data(), view.size()}, context);
   }
};

template <Kiv::Enumeration E>
struct fmt::formatter<E> : fmt::formatter<fmt::string_view> {
   template <class Context>
   auto format(E value, Context& context) const {
      const std::string name = Kiv::enumName(Kiv::enumTable<E>(), static_cast<U8>(value));
      return fmt::formatter<fmt::string_view>::format({name.data(), name.size()}, context);
   }
};
