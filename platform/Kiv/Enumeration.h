// One-byte enumerations known to the framework: `KIV_ENUM` beside the declaration makes the
// functions, `KIV_DEFINE_ENUM` (Reflection.h) in the owning library's source gives the names.
// Relies on the text parser.
//
// For an enumeration `Color` with the instance function `ColorInstance`:
//   stringValue(color)         its name; the number as text for a value without a name
//   ColorInstance(U32)         the enumerator of a number, RangeError when there is none
//   ColorInstance(name)        the enumerator of a name, ParseError when there is none
//   sequenceToValue(text, out) the same from a character range, which may be given by its begin and
//                              end: sequenceToValue(begin, end, out)
//   out << color               writes the name
#pragma once

#include "Kiv/TextParser.h"

#include <iosfwd>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

namespace Kiv {

struct TypeData;

struct Enumerator {
   U8 value;
   std::string_view name; // without quotes
};

// The names of an enumeration. Its texts live until the library that owns the enumeration is
// unloaded.
struct EnumTable {
   std::string_view typeName;               // qualified
   std::span<const Enumerator> enumerators; // in the order in which the library lists them
};

// An enumeration declared with `KIV_ENUM`. Other numbers than those of its enumerators are valid
// values, too: they have a text, but no name.
template <class E>
concept Enumeration = std::is_enum_v<E> && requires { kivEnumTable(std::type_identity<E>{}); };

// The names of `E`.
template <Enumeration E>
const EnumTable& enumTable() {
   return kivEnumTable(std::type_identity<E>{});
}

// Writes `text` to `out`, padded to the stream's width. For headers that include only <iosfwd>.
std::ostream& writeText(std::ostream& out, std::string_view text);

// The name of `value`, or its decimal digits when it has none.
std::string enumName(const EnumTable& table, U8 value);
// `number` as the number of an enumerator. Throws RangeError when no enumerator has it.
U8 enumByNumber(const EnumTable& table, U32 number);
// The number of the enumerator `name`. Throws ParseError, which lists the names, when there is
// none.
U8 enumByName(const EnumTable& table, std::string_view name);
// The number whose `enumName` is `name`: digits are accepted for a number without a name. Throws
// ParseError likewise.
U8 enumByPrintedName(const EnumTable& table, std::string_view name);

} // namespace Kiv

// Declares the functions listed above for `Enum`, whose underlying type is `U8`. Stands outside of
// classes, in the namespace of the enumeration, or of its class when it is nested. When a
// `sequenceToValue` throws, `out` is unchanged.
#define KIV_ENUM(Enum, instance)                                                                   \
   const Kiv::EnumTable& kivEnumTable(std::type_identity<Enum>);                                   \
   const Kiv::TypeData& kivTypeData(std::type_identity<Enum>);                                     \
   inline std::string stringValue(Enum value) {                                                    \
      return Kiv::enumName(Kiv::enumTable<Enum>(), static_cast<U8>(value));                        \
   }                                                                                               \
   inline Enum instance(U32 number) {                                                              \
      return static_cast<Enum>(Kiv::enumByNumber(Kiv::enumTable<Enum>(), number));                 \
   }                                                                                               \
   inline Enum instance(std::string_view name) {                                                   \
      return static_cast<Enum>(Kiv::enumByName(Kiv::enumTable<Enum>(), name));                     \
   }                                                                                               \
   inline void sequenceToValue(std::string_view text, Enum& out) {                                 \
      out = instance(text);                                                                        \
   }                                                                                               \
   template <class Begin, class End>                                                               \
      requires Kiv::CharacterRange<Begin, End>                                                     \
   void sequenceToValue(const Begin& begin, const End& end, Enum& out) {                           \
      out = instance(std::string_view{begin, end});                                                \
   }                                                                                               \
   inline std::ostream& operator<<(std::ostream& out, Enum value) {                                \
      return Kiv::writeText(out, stringValue(value));                                              \
   }
