// How the arguments of a trace go into a record: raw, never as formatted text. `argumentSize`,
// `writeArgument` and the list of kinds that lets a reader take them apart again. Relies on Kiv for
// what a value type is.
//
//   numbers and booleans         8 bytes
//   text                         its length (4 bytes) and its bytes, padded to 8
//   plain value types            their bytes, padded to 8; the type's descriptor prints them
//   other value types            their attributes one after another
#pragma once

#include "Kiv/Enumeration.h"
#include "Kiv/TypeData.h"
#include "Kiv/detail/Rows.h"
#include "Kiv/detail/ValueOps.h"
#include "Ringlog/detail/Layout.h"

#include <algorithm>
#include <array>
#include <concepts>
#include <cstring>
#include <string_view>
#include <type_traits>

namespace Ringlog {

// What stands at one place of a record.
struct ArgumentKind {
   // 'u' and 'i' whole numbers without and with sign, 'c' character, 'b' boolean, 'f' and 'd' real
   // numbers, 's' text, 'v' plain value, '(' composite, ')' its end.
   char code;
   std::string_view type; // of 'v' and '(': the qualified type name
   std::string_view name; // the attribute's name inside a composite
};

template <class T>
concept TextArgument = std::convertible_to<const T&, std::string_view>;

// A value whose text is at hand.
template <class T>
concept NamedArgument = Kiv::TextualValue<T> && requires(const T& value) {
   { value.stringValue() } -> std::same_as<const Pello::String&>;
};

// A value that is no more than its bytes, whatever they are: a reader believes none of them.
template <class T>
concept PlainArgument = !NamedArgument<T> && !std::is_arithmetic_v<T> && Kiv::anyBytes<T>();

template <class T>
concept CompositeArgument = Kiv::CompositeValue<T> && !PlainArgument<T>;

// Those that 8 bytes hold unchanged.
template <class T>
concept NumberArgument = std::integral<T> || std::same_as<T, float> || std::same_as<T, double>;

inline std::size_t textSize(std::string_view text) noexcept {
   return padded(sizeof(U32) + std::min(text.size(), longestText));
}

// Compilers turn a copy of bounded size into a string instruction, whose start costs three times as
// much as copying a name. Steps of fixed size avoid it; the last one overlaps the one before.
inline void copyText(std::byte* to, const char* from, std::size_t size) noexcept {
   constexpr std::size_t step = 16;
   if (size < step) {
      for (std::size_t i = 0; i < size; ++i) {
         to[i] = static_cast<std::byte>(from[i]);
      }
      return;
   }
   const std::size_t last = size - step;
   for (std::size_t at = 0; at < last; at += step) {
      std::memcpy(to + at, from + at, step);
   }
   std::memcpy(to + last, from + last, step);
}

inline std::byte* writeText(std::byte* to, std::string_view text) noexcept {
   const auto length = static_cast<U32>(std::min(text.size(), longestText));
   std::memcpy(to, &length, sizeof length);
   copyText(to + sizeof length, text.data(), length);
   return to + padded(sizeof length + length);
}

template <class T>
std::size_t argumentSize(const T& value) noexcept {
   if constexpr (NumberArgument<T>) {
      return sizeof(U64);
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

// The most that an argument of this type takes.
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

// Writes the argument and returns where the next one begins.
template <class T>
std::byte* writeArgument(std::byte* to, const T& value) noexcept {
   if constexpr (NumberArgument<T>) {
      const U64 bits = numberBits(value);
      std::memcpy(to, &bits, sizeof bits);
      return to + sizeof bits;
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

// How many kinds describe a `T`.
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

// The kinds of a trace's arguments.
template <class... Arguments>
auto argumentKinds() {
   std::array<ArgumentKind, (0 + ... + Detail::kindCount<Arguments>())> kinds{};
   [[maybe_unused]] ArgumentKind* to = kinds.data();
   ((to = Detail::writeKinds<Arguments>(to, {})), ...);
   return kinds;
}

} // namespace Ringlog
