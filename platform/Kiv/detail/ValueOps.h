// What can be done with any value: `valueText`, `parseValue`, `hashOf`. One `ValueOps` per value
// type, never per attribute. Relies on rows, enumerations and the text parser.
//
// The generic text: numbers in decimal; `true` and `false`; text in double quotes; enumerators in
// single quotes; a value of one attribute as that attribute; a composite value as
// `Name::Space::Type(first=…, second=…)`. What is printed is parsed back to an equal value.
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

template <class T>
struct ValueOps;

// A value whose generic text is its own text in double quotes: it has `stringValue()` and is made
// from text.
template <class T>
concept TextualValue = requires(const T& value) {
   { T::kivTextual } -> std::convertible_to<bool>;
   { value.stringValue() } -> std::convertible_to<std::string_view>;
};

// A value declared with `KIV_VALUE`. Entities have rows too, but number them from further on.
template <class T>
concept RowValue =
      HasRows<T> && !TextualValue<T> && requires { T::kivTypeName; } && T::kivFirstRow == 1;

// A value made of several attributes, whose text names them.
template <class T>
concept CompositeValue = RowValue<T> && (rowCount<T>() > 1);

// Whether any bytes of the right number are a `T` that can be printed, so that one can be taken
// from where nothing is believed. A textual value says so with `kivAnyBytes`.
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

// The value whose generic text is the whole of `text`; throws ParseError, or RangeError for a
// number that the type refuses.
template <class T>
T parseValue(std::string_view text) {
   TextParser parser{text};
   T value = ValueOps<T>::parse(parser);
   parser.expectEnd();
   return value;
}

// The single-attribute hash. Throws NotHashable for a type without one.
template <class T>
U64 hashOf(const T& value, U64 seed) {
   return ValueOps<T>::hash(value, seed);
}

namespace Detail {

// Runs `read()` on text that stands between quotes and begins at `begin`; the position of a failure
// is given in the whole text, to the character when no escape stands before it.
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

// The shortest text that reads back as the same number.
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

template <class T, class Row>
auto parseAttribute(TextParser& parser, const Row& row, bool first) {
   if (!first) {
      parser.expect(", ");
      parser.expect(std::string{row.name} + "=");
   }
   return parser.attribute(row.name,
                           [&] { return ValueOps<typename Row::StorageType>::parse(parser); });
}

// The attributes of a composite value, read in declaration order.
template <class T>
auto parseAttributes(TextParser& parser) {
   parser.expect(std::string{T::kivTypeName} + "(" + std::string{rowAt<T, 0>().name} + "=");
   return [&]<std::size_t... index>(std::index_sequence<index...>) {
      // Braces fix the order of evaluation.
      auto attributes = std::tuple{parseAttribute<T>(parser, rowAt<T, index>(), index == 0)...};
      parser.expect(")");
      return attributes;
   }(std::make_index_sequence<rowCount<T>()>{});
}

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
