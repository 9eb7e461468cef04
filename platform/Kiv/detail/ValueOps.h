// What can be done with any value: `valueText`, `parseValue`, `hashOf`. Relies on rows,
// enumerations and the text parser.
//
// The generic text is
//   for numbers                       decimal
//   for booleans                      true or false
//   for text                          "…", with backslash escapes
//   for enumerators                   '…', the name, or the number of one without a name
//   for a value with its own text     "…", that text
//   for a value of one attribute      the text of the attribute
//   for a value of several            Name::Space::Type(first=…, second=…)
//
// What is printed is parsed back to an equal value, except for a NaN, which equals nothing.
#pragma once

#include "Kiv/Enumeration.h"
#include "Kiv/Hash.h"
#include "Kiv/String.h"
#include "Kiv/TextParser.h"
#include "Kiv/detail/Rows.h"

#include <concepts>
#include <limits>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

namespace Kiv {

// The operations of one type, specialised below for each kind of type and never per attribute:
//   print(out, value)  appends the generic text
//   parse(parser)      reads one and returns the value; throws ParseError or RangeError
//   hash(value, seed)  throws NotHashable where a value has no hash; `double` has none at all
template <class T>
struct ValueOps;

// A value whose generic text is its own text in double quotes: it has `stringValue()` and is made
// from text.
template <class T>
concept TextualValue = requires(const T& value) {
   { T::kivTextual } -> std::convertible_to<bool>;
   { value.stringValue() } -> std::convertible_to<std::string_view>;
};

// A value declared with `KIV_VALUE`. Entities have rows as well, whose identifiers begin higher.
template <class T>
concept RowValue =
      HasRows<T> && !TextualValue<T> && requires { T::kivTypeName; } && T::kivFirstRow == 1;

// A value made of several attributes, whose text names them.
template <class T>
concept CompositeValue = RowValue<T> && (rowCount<T>() > 1);

// Whether any `sizeof(T)` bytes are a `T` that can be printed, so that one can be read from memory
// that may be damaged. A boolean is not: a byte other than 0 and 1 is undefined behaviour. A
// textual value says so with `kivAnyBytes`.
template <class T>
constexpr bool anyBytes() {
   if constexpr (!std::is_trivially_copyable_v<T> || std::same_as<T, bool>) {
      return false;
   } else if constexpr (std::is_arithmetic_v<T> || Enumeration<T>) {
      return true;
   } else if constexpr (RowValue<T>) {
      bool all = true;
      forEachRow<T>(
            [&]<class Row>(const Row&) { all = all && anyBytes<typename Row::StorageType>(); });
      return all;
   } else {
      return requires { requires T::kivAnyBytes; };
   }
}

// The generic text of `value`.
template <class T>
std::string valueText(const T& value) {
   std::string out;
   ValueOps<T>::print(out, value);
   return out;
}

// The value whose generic text is the whole of `text`. Throws ParseError, or RangeError for a
// number that the type refuses.
template <class T>
T parseValue(std::string_view text) {
   TextParser parser{text};
   T value = ValueOps<T>::parse(parser);
   parser.expectEnd();
   return value;
}

// The hash of `value`. Throws NotHashable for a value type without one.
template <class T>
U64 hashOf(const T& value, U64 seed) {
   return ValueOps<T>::hash(value, seed);
}

namespace Detail {

// Returns `read()`, which parses text between quotes that begins at position `begin` of the whole
// text. The position in a ParseError is moved accordingly. It is exact unless an escape stands
// before it, because `read` sees the text with its escapes undone.
template <class T, class Read>
T parseInner(std::size_t begin, Read&& read) {
   try {
      return std::forward<Read>(read)();
   } catch (const ParseError& error) {
      throw ParseError{error.reason(), begin + error.position()};
   }
}

} // namespace Detail

template <std::unsigned_integral T>
   requires(!std::same_as<T, bool>)
struct ValueOps<T> {
   static void print(std::string& out, T value) { out += std::to_string(value); }
   static T parse(TextParser& parser) {
      return static_cast<T>(parser.number(std::numeric_limits<T>::max()));
   }
   static constexpr U64 hash(T value, U64 seed) noexcept { return hashNumber(value, seed); }
};

template <>
struct ValueOps<bool> {
   static void print(std::string& out, bool value) { out += value ? "true" : "false"; }
   static bool parse(TextParser& parser) { return parser.boolean(); }
   static constexpr U64 hash(bool value, U64 seed) noexcept { return hashNumber(value, seed); }
};

// Prints the shortest text that reads back as the same number.
template <>
struct ValueOps<double> {
   static void print(std::string& out, double value) { printReal(out, value); }
   static double parse(TextParser& parser) { return parser.real(); }
};

template <>
struct ValueOps<Pello::String> {
   static void print(std::string& out, const Pello::String& value) { printQuoted(out, value); }
   static Pello::String parse(TextParser& parser) { return parser.quoted(); }
   static U64 hash(const Pello::String& value, U64 seed) noexcept {
      return hashString(value, seed);
   }
};

template <Enumeration E>
struct ValueOps<E> {
   static void print(std::string& out, E value) {
      out += '\'';
      out += enumName(enumTable<E>(), static_cast<U8>(value));
      out += '\'';
   }
   static E parse(TextParser& parser) {
      const std::size_t begin = parser.position();
      const std::string_view name = parser.quotedName();
      return Detail::parseInner<E>(
            begin + 1, [&] { return static_cast<E>(enumByPrintedName(enumTable<E>(), name)); });
   }
   static constexpr U64 hash(E value, U64 seed) noexcept {
      return hashNumber(static_cast<U8>(value), seed);
   }
};

template <TextualValue T>
struct ValueOps<T> {
   static void print(std::string& out, const T& value) { printQuoted(out, value.stringValue()); }
   static T parse(TextParser& parser) {
      const std::size_t begin = parser.position();
      const std::string text = parser.quoted();
      return Detail::parseInner<T>(begin + 1, [&] { return T{std::string_view{text}}; });
   }
   static U64 hash(const T& value, U64 seed) { return value.hash(seed); }
};

namespace Detail {

// Reads one attribute of `T` with what separates it from the one before.
template <class T, class Row>
auto parseAttribute(TextParser& parser, const Row& row, bool first) {
   if (!first) {
      parser.expect(", ");
      parser.expect(std::string{row.name} + "=");
   }
   return parser.attribute(row.name,
                           [&] { return ValueOps<typename Row::StorageType>::parse(parser); });
}

// Reads a composite value and returns its attributes as a tuple.
template <class T>
auto parseAttributes(TextParser& parser) {
   parser.expect(std::string{T::kivTypeName} + "(" + std::string{rowAt<T, 0>().name} + "=");
   return [&]<std::size_t... index>(std::index_sequence<index...>) {
      // In braces the attributes are read from left to right; as function arguments they might not
      // be.
      auto attributes = std::tuple{parseAttribute<T>(parser, rowAt<T, index>(), index == 0)...};
      parser.expect(")");
      return attributes;
   }(std::make_index_sequence<rowCount<T>()>{});
}

// Appends the text of a composite value.
template <class T>
void printAttributes(std::string& out, const T& value) {
   out += T::kivTypeName;
   char separator = '(';
   forEachRow<T>([&](const auto& row) {
      out += separator;
      out += separator == ',' ? " " : "";
      separator = ',';
      out += row.name;
      out += '=';
      ValueOps<std::remove_cvref_t<decltype(value.*row.member)>>::print(out, value.*row.member);
   });
   out += ')';
}

} // namespace Detail

template <RowValue T>
struct ValueOps<T> {
   static void print(std::string& out, const T& value) {
      if constexpr (CompositeValue<T>) {
         Detail::printAttributes(out, value);
      } else {
         constexpr auto row = rowAt<T, 0>();
         using Only = std::remove_cvref_t<decltype(value.*row.member)>;
         ValueOps<Only>::print(out, value.*row.member);
      }
   }
   static T parse(TextParser& parser) {
      if constexpr (CompositeValue<T>) {
         return std::make_from_tuple<T>(Detail::parseAttributes<T>(parser));
      } else {
         return T{ValueOps<typename decltype(rowAt<T, 0>())::StorageType>::parse(parser)};
      }
   }
   static U64 hash(const T& value, U64 seed) {
      if constexpr (requires { value.hash(seed); }) {
         return value.hash(seed);
      } else {
         throw NotHashable{std::string{T::kivTypeName} + " cannot be hashed"};
      }
   }
};

} // namespace Kiv
