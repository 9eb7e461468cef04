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
//      explicit Color(std::string_view text) : Color{Kiv::parseValue<Color>(text)} {}
//   };
//
// The constructor from all attributes in declaration order is required: parsing calls it, so it is
// the one place where a value may refuse its attributes.
#pragma once

#include "Kiv/TypeData.h"
#include "Kiv/detail/ValueOps.h"

#include <ostream>
#include <string>

namespace Kiv {

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
   friend std::ostream& operator<<(std::ostream& out, const T& value) {
      return out << valueText(value);
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

template <Kiv::RowValue T>
struct fmt::formatter<T> : fmt::formatter<fmt::string_view> {
   template <class Context>
   auto format(const T& value, Context& context) const {
      const std::string text = Kiv::valueText(value);
      return fmt::formatter<fmt::string_view>::format({text.data(), text.size()}, context);
   }
};

template <Kiv::TextualValue T>
struct fmt::formatter<T> : fmt::formatter<fmt::string_view> {
   template <class Context>
   auto format(const T& value, Context& context) const {
      const auto& text = value.stringValue();
      const std::string_view view{text};
      return fmt::formatter<fmt::string_view>::format({view.data(), view.size()}, context);
   }
};
