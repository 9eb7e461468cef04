// How a value type is declared: derive from `Value`, open with `KIV_VALUE`, name each attribute
// with `KIV_FIELD`. Relies on ValueOps for everything that is done with the attributes.
//
//   class Color : public Kiv::Value<Color> {
//      KIV_VALUE(Color, "Paint::Color");
//      KIV_FIELD(1, U8, red);
//      KIV_FIELD(2, U8, green);
//    public:
//      Color() = default;
//      Color(U8 red, U8 green) : red_{red}, green_{green} {}
//      KIV_TEXT_CONSTRUCTORS(Color);
//   };
//
// The constructor from all attributes in declaration order is required: parsing calls it, so it is
// the one place where a value may refuse its attributes.
//
// A type with an attribute that is text has no `KIV_TEXT_CONSTRUCTORS`: whoever writes
// `Name{"web"}` means the attribute. Its generic text is read by `Kiv::parseValue<Name>(text)`.
#pragma once

#include "Kiv/detail/ValueOps.h"

#include <concepts>
#include <iosfwd>
#include <iterator>
#include <string>
#include <string_view>
#include <type_traits>

namespace Kiv {

struct TypeData;

// Walks characters that stand side by side: a pointer, or an iterator of a string. An array is
// none, so that two literals are not taken for the ends of a range.
template <class At>
concept CharacterIterator =
      std::contiguous_iterator<At> && std::same_as<std::iter_value_t<At>, char>;

// Base of value types: equality, hash and stream output made from the attributes. A type may
// replace `isEq` or `hash` by its own.
template <class T>
class Value {
 public:
   // Whether all attributes are equal.
   bool isEq(const T& other) const {
      bool equal = true;
      forEachRow<T>(
            [&](const auto& row) { equal = equal && self().*row.member == other.*row.member; });
      return equal;
   }

   // Several attributes: a state started from `seed` into which each attribute's own hash, made
   // with seed 0, is mixed in declaration order. One attribute: that attribute's hash with seed 0.
   U64 hash(U64 seed) const {
      if constexpr (rowCount<T>() == 1) {
         return hashOf(self().*rowAt<T, 0>().member, 0);
      } else {
         HashState state{seed};
         forEachRow<T>([&](const auto& row) { state.mix(hashOf(self().*row.member, 0)); });
         return state.result();
      }
   }

   friend bool operator==(const T& a, const T& b) { return a.isEq(b); }
   // The generic text.
   friend std::ostream& operator<<(std::ostream& out, const T& value) {
      return writeText(out, valueText(value));
   }

 private:
   friend T;
   Value() = default;
   const T& self() const { return static_cast<const T&>(*this); }
};

} // namespace Kiv

// `qualifiedName` is what the generic text shows.
#define KIV_VALUE(Type, qualifiedName)                                                             \
 public:                                                                                           \
   static constexpr std::string_view kivTypeName = qualifiedName;                                  \
   static constexpr U16 kivFirstRow = 1;                                                           \
   static const Kiv::TypeData& kivTypeData();                                                      \
                                                                                                   \
 private:                                                                                          \
   using KivSelf = Type

// An attribute that is zero (empty) by default.
#define KIV_FIELD(id, Type, name)                                                                  \
 public:                                                                                           \
   const Type& name() const {                                                                      \
      return name##_;                                                                              \
   }                                                                                               \
   KIV_ROW(id, name, value, Type)                                                                  \
                                                                                                   \
 private:                                                                                          \
   Type name##_ {}

// The constructors from the generic text, given whole or by its begin and end. They throw
// `ParseError`, or `RangeError` for a number that the type refuses.
#define KIV_TEXT_CONSTRUCTORS(Type)                                                                \
   explicit Type(std::string_view text) : Type{Kiv::parseValue<Type>(text)} {}                     \
   template <Kiv::CharacterIterator At>                                                            \
   explicit Type(const At& begin, const At& end) : Type{std::string_view{begin, end}} {}           \
   static_assert(true, "takes the semicolon")
