// How fmt prints the framework's values and enumerators: as they are written to a stream. Takes the
// format specifications of strings, such as a width. Relies on fmt, which is costly to compile:
// only what formats includes this header.
#pragma once

#include "Kiv/Enumeration.h"
#include "Kiv/detail/ValueOps.h"
#include "Pello/Format.h"

#include <fmt/format.h>

#include <string>
#include <string_view>

// Values made of attributes print their generic text.
template <Kiv::RowValue T>
struct fmt::formatter<T> : fmt::formatter<fmt::string_view> {
   template <class Context>
   auto format(const T& value, Context& context) const {
      const std::string text = Kiv::valueText(value);
      return fmt::formatter<fmt::string_view>::format({text.data(), text.size()}, context);
   }
};

// Values with a text of their own print it without the quotes of the generic text.
template <Kiv::TextualValue T>
struct fmt::formatter<T> : fmt::formatter<fmt::string_view> {
   template <class Context>
   auto format(const T& value, Context& context) const {
      const auto& text = value.stringValue();
      const std::string_view view{text};
      return fmt::formatter<fmt::string_view>::format({view.data(), view.size()}, context);
   }
};

// Enumerators print their bare name, or their number when they have none.
template <Kiv::Enumeration E>
struct fmt::formatter<E> : fmt::formatter<fmt::string_view> {
   template <class Context>
   auto format(E value, Context& context) const {
      const std::string name = Kiv::enumName(Kiv::enumTable<E>(), static_cast<U8>(value));
      return fmt::formatter<fmt::string_view>::format({name.data(), name.size()}, context);
   }
};
