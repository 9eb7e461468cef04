// How a value type is declared: derive from `Value`, open with `KIV_VALUE`, declare each attribute
// with `KIV_FIELD`. Relies on ValueOps for everything that is done with the attributes. The source
// of the library that owns the type has `KIV_DEFINE_VALUE(Paint::Color)` (Reflection.h).
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
// A default constructor is required, and one from all attributes in the order of declaration.
// Parsing and reflection call the latter, so it is the one place where a value may refuse its
// attributes: it throws RangeError for a number out of range.
//
// A type whose attribute is text has no `KIV_TEXT_CONSTRUCTORS`: whoever writes `Name{"web"}` means
// the attribute. `Kiv::parseValue<Name>(text)` reads the generic text of such a type.
#pragma once

#include "Kiv/detail/ValueOps.h"

#include <iosfwd>
#include <string>
#include <string_view>
#include <type_traits>

namespace Kiv {

struct TypeData;

// Base of the value type `T`: equality, hash and stream output made from the attributes. `T` may
// define an `isEq` or `hash` of its own; a type without a hash declares `hash` as deleted.
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

   // A value of one attribute has the hash that the attribute has with seed 0, whatever `seed` is.
   // For several attributes, the hash of each with seed 0 is mixed, in the order of declaration,
   // into a state that begins with `seed`.
   U64 hash(U64 seed) const {
      if constexpr (rowCount<T>() == 1) {
         return hashOf(self().*rowAt<T, 0>().member, 0);
      } else {
         HashState state{seed};
         forEachRow<T>([&](const auto& row) { state.mix(hashOf(self().*row.member, 0)); });
         return state.result();
      }
   }

   // Uses the `isEq` of `T`.
   friend bool operator==(const T& a, const T& b) { return a.isEq(b); }
   // Writes the generic text, padded to the stream's width.
   friend std::ostream& operator<<(std::ostream& out, const T& value) {
      return writeText(out, valueText(value));
   }

 private:
   friend T;
   Value() = default;
   const T& self() const { return static_cast<const T&>(*this); }
};

} // namespace Kiv

// Opens a value class. `Type` is the class without its namespace, `qualifiedName` is a literal that
// the generic text and the registry show.
#define KIV_VALUE(Type, qualifiedName)                                                             \
 public:                                                                                           \
   static constexpr std::string_view kivTypeName = qualifiedName;                                  \
   static constexpr U16 kivFirstRow = 1;                                                           \
   static const Kiv::TypeData& kivTypeData();                                                      \
                                                                                                   \
 private:                                                                                          \
   using KivSelf = Type

// An attribute with the accessor `name()`, zero or empty by default. The first has identifier 1,
// the others follow without a gap. There is no setter: a value is changed by assigning another one.
#define KIV_FIELD(id, Type, name)                                                                  \
 public:                                                                                           \
   const Type& name() const {                                                                      \
      return name##_;                                                                              \
   }                                                                                               \
   KIV_ROW(id, name, value, Type)                                                                  \
                                                                                                   \
 private:                                                                                          \
   Type name##_ {}

// The constructors from the generic text, which is given whole or by its begin and end. They throw
// ParseError, or RangeError for a number that the type refuses.
#define KIV_TEXT_CONSTRUCTORS(Type)                                                                \
   explicit Type(std::string_view text) : Type{Kiv::parseValue<Type>(text)} {}                     \
   template <class Begin, class End>                                                               \
      requires Kiv::CharacterRange<Begin, End>                                                     \
   explicit Type(const Begin& begin, const End& end) : Type{std::string_view{begin, end}} {}       \
   static_assert(true, "takes the semicolon")
