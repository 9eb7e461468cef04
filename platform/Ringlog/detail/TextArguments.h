// The arguments of a text trace without their types, so that a trace point costs its includer no
// formatting library: `eraseArgument`, and the check of a format while it is compiled. Part of
// Trace.h, for it alone. Relies on the codec for what a trace can carry.
#pragma once

#include "Ringlog/detail/Codec.h"

#include <array>
#include <concepts>
#include <cstddef>
#include <string>
#include <string_view>

namespace Ringlog {

// One argument; valid as long as what it was made of.
struct ErasedArgument {
   char code;                                   // as in ArgumentKind
   U64 bits = 0;                                // of a number
   std::string_view text;                       // of 's'
   const void* value = nullptr;                 // of 'v' and '('
   std::string (*print)(const void*) = nullptr; // the text of `value`
};

namespace Detail {

// What people read of a value: an enumerator's name, a value's own text, or its generic text.
template <class T>
std::string shownText(const void* value) {
   const T& shown = *static_cast<const T*>(value);
   if constexpr (Kiv::Enumeration<T>) {
      return Kiv::enumName(Kiv::enumTable<T>(), static_cast<U8>(shown));
   } else if constexpr (Kiv::TextualValue<T>) {
      return std::string{std::string_view{shown.stringValue()}};
   } else {
      return Kiv::valueText(shown);
   }
}

template <class T>
ErasedArgument eraseArgument(const T& value) {
   ErasedArgument erased{codeOf<T>(), 0, {}, nullptr, nullptr};
   if constexpr (NumberArgument<T>) {
      erased.bits = numberBits(value);
   } else if constexpr (TextArgument<T>) {
      erased.text = value;
   } else if constexpr (NamedArgument<T>) {
      erased.text = value.stringValue();
   } else {
      erased.value = &value;
      erased.print = &shownText<T>;
   }
   return erased;
}

constexpr bool isWhole(char code) {
   return code == 'u' || code == 'i';
}

// Whether the replacement fields of `format` take the arguments one by one in order, without one
// too many or too few. A width or precision in braces takes a whole number of its own, and
// hexadecimal is for whole numbers only. `codes` has one code per argument.
constexpr bool formatFits(std::string_view format, std::string_view codes) {
   std::size_t taken = 0;
   for (std::size_t at = 0; at < format.size(); ++at) {
      const char c = format[at];
      if (c != '{' && c != '}') {
         continue;
      }
      if (at + 1 < format.size() && format[at + 1] == c) {
         ++at; // a brace that is meant as such
         continue;
      }
      if (c == '}' || taken == codes.size()) {
         return false;
      }
      const char code = codes[taken++];
      const std::size_t begin = ++at;
      for (; at < format.size() && format[at] != '}'; ++at) {
         if (format[at] == '{') {
            if (format.substr(at, 2) != "{}" || taken == codes.size() || !isWhole(codes[taken++])) {
               return false;
            }
            ++at;
         }
      }
      const std::string_view field = format.substr(begin, at - begin);
      if (at == format.size() || (!field.empty() && field.front() != ':') ||
          (field.ends_with('x') && !isWhole(code))) {
         return false;
      }
   }
   return taken == codes.size();
}

// Not constant: a call of it while a format is compiled is the error that its name says.
void theFormatDoesNotFitItsArguments();

} // namespace Detail

// A format that has been checked against the types of its arguments.
template <class... Arguments>
struct CheckedFormat {
   consteval CheckedFormat(const char* format) {
      constexpr std::array<char, sizeof...(Arguments) + 1> codes{Detail::codeOf<Arguments>()...};
      if (!Detail::formatFits(format, {codes.data(), sizeof...(Arguments)})) {
         Detail::theFormatDoesNotFitItsArguments();
      }
   }
};

} // namespace Ringlog
