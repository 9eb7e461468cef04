// The arguments of a text trace without their types (`eraseArgument`), and the check of a format
// while it is compiled (`CheckedFormat`). Part of Trace.h, and included by nothing else. Relies on
// the codec for the types that a trace can carry.
//
// The types are erased so that one source includes fmt, and not every source that traces: fmt is
// slow to compile.
#pragma once

#include "Ringlog/detail/Codec.h"

#include <array>
#include <concepts>
#include <cstddef>
#include <string>
#include <string_view>

namespace Ringlog {

// One argument. Refers to the object it was made of and is valid as long as that. `code` says which
// of the other members has the value.
struct ErasedArgument {
   char code;                                   // as in `ArgumentKind`, never ')'
   U64 bits = 0;                                // of a number: `numberBits`
   std::string_view text;                       // of 's'
   const void* value = nullptr;                 // of 'v' and '(': the object, else null
   std::string (*print)(const void*) = nullptr; // prints `value`; null if that is null
};

namespace Detail {

// The text of a value in a trace: the bare name of an enumerator, the text of a textual value
// without quotes, the generic text of any other. `value` is a `T`. The ring's reader gives the same
// text (`TypeData::displayText`).
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

// Whether an argument of this code is a whole number, which may be a width or be printed in
// hexadecimal.
constexpr bool isWhole(char code) {
   return code == 'u' || code == 'i';
}

// Whether `format` fits arguments of these codes, one code per argument. Its replacement fields
// must take all arguments one by one in order; fields with a number or a name are refused. A width
// or precision in braces takes an argument of its own, which must be a whole number. Hexadecimal is
// for whole numbers only. Other format specifications are not checked: fmt throws when the text
// trace uses them.
constexpr bool formatFits(std::string_view format, std::string_view codes) {
   std::size_t taken = 0;
   for (std::size_t at = 0; at < format.size(); ++at) {
      const char c = format[at];
      if (c != '{' && c != '}') {
         continue;
      }
      if (at + 1 < format.size() && format[at + 1] == c) {
         ++at; // "{{" or "}}" stands for a brace in the text
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

// Never defined. It is not constexpr, so a call while a format is compiled is an error, and the
// compiler's message shows this name.
void theFormatDoesNotFitItsArguments();

} // namespace Detail

// A format that has been checked against the types of its arguments. It has no members: the check
// in its constructor, while compiling, is all its purpose.
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
