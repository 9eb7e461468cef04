// How the arguments of a trace are stored in a record: raw, never as formatted text. `argumentSize`
// and `writeArgument` write them; `argumentKinds` describes them to a reader, once per call site.
// Relies on Kiv for what a value type is.
//
//   numbers and booleans         8 bytes
//   text                         its length (4 bytes) and its bytes, padded to a multiple of 8
//   text that continues another  a reference to the other one and what follows, padded likewise
//   values that are their name   the name as text
//   plain values                 their bytes, padded to a multiple of 8; the descriptor of the type
//                                prints them
//   other values                 their attributes one after another
//
// A trace can carry these types only; others do not compile. Padding bytes are not written: they
// keep what an earlier record left there.
#pragma once

#include "Kiv/Enumeration.h"
#include "Kiv/TypeData.h"
#include "Kiv/detail/Rows.h"
#include "Kiv/detail/ValueOps.h"
#include "Ringlog/ContinuedText.h"
#include "Ringlog/detail/Layout.h"
#include "Ringlog/detail/TextBytes.h"

#include <algorithm>
#include <array>
#include <concepts>
#include <cstring>
#include <string_view>
#include <type_traits>

namespace Ringlog {

// What stands at one place of a record. A composite value takes one kind for its beginning, those
// of its attributes, and one for its end.
struct ArgumentKind {
   // 'u' and 'i' whole numbers without and with sign, 'c' character, 'b' boolean, 'f' float, 'd'
   // double, 's' text, 'v' plain value, '(' beginning of a composite value, ')' its end. These are
   // bytes of the ring: a new code or another meaning is another layout (`ringMagic`).
   char code;
   std::string_view type; // of 'v' and '(': the qualified type name, a literal; else unused
   std::string_view name; // inside a composite value: the attribute's name; else empty
};

// Anything that converts to a string view. It is copied, so it need not outlive the trace.
template <class T>
concept TextArgument = std::convertible_to<const T&, std::string_view>;

// A value that keeps its text, such as a name. Copying the text costs no more than copying a
// string.
template <class T>
concept NamedArgument = Kiv::TextualValue<T> && requires(const T& value) {
   { value.stringValue() } -> std::same_as<const Pello::String&>;
};

// A value that is printed from a copy of its bytes. Any bytes must be a printable value of the
// type, because the reader of a damaged ring hands over whatever it finds.
template <class T>
concept PlainArgument = !NamedArgument<T> && !std::is_arithmetic_v<T> && Kiv::anyBytes<T>();

// A value of several attributes, at least one of which cannot be printed from unchecked bytes, such
// as text or a boolean. Kiv allows attributes that are unsigned numbers, booleans, doubles,
// strings, enumerators and values.
template <class T>
concept CompositeArgument = Kiv::CompositeValue<T> && !PlainArgument<T>;

// Numbers, which 8 bytes hold without loss: a float is stored as the double of the same value.
template <class T>
concept NumberArgument = std::integral<T> || std::same_as<T, float> || std::same_as<T, double>;

// The bytes that `writeArgument` takes for `value`.
template <class T>
std::size_t argumentSize(const T& value) noexcept {
   if constexpr (NumberArgument<T>) {
      return sizeof(U64);
   } else if constexpr (std::same_as<T, ContinuedText>) {
      return Detail::continuedSize(value);
   } else if constexpr (TextArgument<T>) {
      return textSize(value);
   } else if constexpr (NamedArgument<T>) {
      return textSize(value.stringValue());
   } else if constexpr (PlainArgument<T>) {
      return padded(sizeof(T));
   } else {
      static_assert(CompositeArgument<T>, "not a type that a trace can carry");
      std::size_t size = 0;
      Kiv::forEachRow<T>([&](const auto& row) { size += argumentSize(value.*row.member); });
      return size;
   }
}

// The most bytes that any argument of this type takes. Known while compiling, so that a trace whose
// arguments may not fit a block does not compile.
template <class T>
constexpr std::size_t largestArgument() noexcept {
   if constexpr (NumberArgument<T>) {
      return sizeof(U64);
   } else if constexpr (TextArgument<T> || NamedArgument<T>) {
      return padded(sizeof(U32) + longestText);
   } else if constexpr (CompositeArgument<T>) {
      std::size_t size = 0;
      Kiv::forEachRow<T>(
            [&]<class Row>(const Row&) { size += largestArgument<typename Row::StorageType>(); });
      return size;
   } else {
      return padded(sizeof(T));
   }
}

// The 8 bytes of a number: whole numbers extended according to their sign, real numbers as the bits
// of a double.
template <NumberArgument T>
U64 numberBits(T value) noexcept {
   U64 bits = 0;
   if constexpr (std::floating_point<T>) {
      const double number = value;
      std::memcpy(&bits, &number, sizeof bits);
   } else {
      bits = static_cast<U64>(value);
   }
   return bits;
}

// Writes the argument and returns where the next one begins. Requires `argumentSize(value)` bytes
// at `to`, at a multiple of 8.
template <class T>
std::byte* writeArgument(std::byte* to, const T& value) noexcept {
   if constexpr (NumberArgument<T>) {
      const U64 bits = numberBits(value);
      std::memcpy(to, &bits, sizeof bits);
      return to + sizeof bits;
   } else if constexpr (std::same_as<T, ContinuedText>) {
      return Detail::writeContinued(to, value);
   } else if constexpr (TextArgument<T>) {
      return writeText(to, value);
   } else if constexpr (NamedArgument<T>) {
      return writeText(to, value.stringValue());
   } else if constexpr (PlainArgument<T>) {
      std::memcpy(to, &value, sizeof value);
      return to + padded(sizeof value);
   } else {
      Kiv::forEachRow<T>([&](const auto& row) { to = writeArgument(to, value.*row.member); });
      return to;
   }
}

namespace Detail {

// How many kinds describe an argument of type `T`: one, or for a composite value those of its
// attributes and two for its beginning and end.
template <class T>
constexpr std::size_t kindCount() {
   if constexpr (CompositeArgument<T>) {
      std::size_t count = 2;
      Kiv::forEachRow<T>(
            [&]<class Row>(const Row&) { count += kindCount<typename Row::StorageType>(); });
      return count;
   } else {
      return 1;
   }
}

// `ArgumentKind::code` of an argument of type `T`.
template <class T>
constexpr char codeOf() {
   if constexpr (std::same_as<T, bool>) {
      return 'b';
   } else if constexpr (std::same_as<T, char>) {
      return 'c';
   } else if constexpr (std::floating_point<T>) {
      return std::same_as<T, float> ? 'f' : 'd';
   } else if constexpr (NumberArgument<T>) {
      return std::is_signed_v<T> ? 'i' : 'u';
   } else if constexpr (TextArgument<T> || NamedArgument<T>) {
      return 's';
   } else {
      return PlainArgument<T> ? 'v' : '(';
   }
}

// The name under which the type is registered; empty for numbers and text.
template <class T>
std::string_view typeNameOf() {
   if constexpr (Kiv::Enumeration<T>) {
      return Kiv::enumTable<T>().typeName;
   } else if constexpr (requires { T::kivTypeName; }) {
      return T::kivTypeName;
   } else {
      return {};
   }
}

// Writes the kinds of a `T` and returns where the next ones go. Requires room for `kindCount<T>()`.
template <class T>
ArgumentKind* writeKinds(ArgumentKind* to, std::string_view name) {
   *to++ = {codeOf<T>(), typeNameOf<T>(), name};
   if constexpr (CompositeArgument<T>) {
      Kiv::forEachRow<T>([&]<class Row>(const Row& row) {
         to = writeKinds<typename Row::StorageType>(to, row.name);
      });
      *to++ = {')', {}, {}};
   }
   return to;
}

} // namespace Detail

// The kinds of a trace's arguments, in the order in which `writeArgument` writes the arguments.
template <class... Arguments>
auto argumentKinds() {
   std::array<ArgumentKind, (0 + ... + Detail::kindCount<Arguments>())> kinds{};
   [[maybe_unused]] ArgumentKind* to = kinds.data();
   ((to = Detail::writeKinds<Arguments>(to, {})), ...);
   return kinds;
}

} // namespace Ringlog
