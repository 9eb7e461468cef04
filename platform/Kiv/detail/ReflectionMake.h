// Making objects from arguments: `describeMaking` for entities, `describeMakingValue` for values.
// Both set `TypeData::parameters` and `TypeData::make`. Part of Reflection.h, for it alone. Relies
// on rows.
#pragma once

#include "Kiv/Entity.h"
#include "Kiv/TypeData.h"
#include "Kiv/detail/Arguments.h"
#include "Kiv/detail/ValueOps.h"
#include "Pello/Ptr.h"

#include <any>
#include <cstddef>
#include <span>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

namespace Kiv::Detail {

// The rows that `T` itself declares, all or only the constant ones, as a tuple.
template <class T, bool onlyConstants>
constexpr auto ownRows() {
   return []<std::size_t... index>(std::index_sequence<index...>) {
      return std::tuple_cat([] {
         constexpr auto row = rowAt<T, index>();
         if constexpr (!onlyConstants || row.kind == AttributeKind::constant) {
            return std::tuple{row};
         } else {
            return std::tuple<>{};
         }
      }()...);
   }(std::make_index_sequence<rowCount<T>()>{});
}

// The rows of all constants of `T`, inherited ones first, as a tuple.
template <class T>
constexpr auto allConstants() {
   if constexpr (requires { typename T::KivBase; }) {
      return std::tuple_cat(allConstants<typename T::KivBase>(), ownRows<T, true>());
   } else {
      return std::tuple<>{};
   }
}

// Makes a `T` from the attributes whose rows `GetRows{}()` gives, in their order. `GetRows` is a
// type without data, so that the rows are known at compile time.
template <class T, class GetRows>
struct MakeFrom {
   static constexpr auto rows = GetRows{}();
   static constexpr std::size_t count = std::tuple_size_v<decltype(rows)>;
   using Indexes = std::make_index_sequence<count>;
   template <std::size_t at>
   using Storage = typename std::tuple_element_t<at, decltype(rows)>::StorageType;

   template <std::size_t... at>
   static constexpr bool possible(std::index_sequence<at...>) {
      return std::is_constructible_v<T, Storage<at>...>;
   }
   // Whether `T` has such a constructor. The rest of this class compiles only if it has.
   static constexpr bool isPossible = possible(Indexes{});

   // `TypeData::make`: `values` has as many elements as there are rows.
   static std::any make(std::span<const std::any> values) {
      return [&]<std::size_t... at>(std::index_sequence<at...>) -> std::any {
         // In braces the arguments are evaluated from left to right, so that of several wrong ones
         // every compiler reports the first.
         std::tuple<Storage<at>...> arguments{argumentAs<Storage<at>>(
               values[at], "argument", std::get<at>(rows).name, T::kivTypeName)...};
         if constexpr (std::is_base_of_v<Entity, T>) {
            return std::any{Pello::Ptr<T>{new T(std::get<at>(arguments)...)}};
         } else {
            return std::any{T(std::get<at>(arguments)...)};
         }
      }(Indexes{});
   }

   // A new entity with the constants of `source`. It has no reference yet.
   static T* makeLike(const T& source) {
      return [&]<std::size_t... at>(std::index_sequence<at...>) {
         return new T(source.*std::get<at>(rows).member...);
      }(Indexes{});
   }

   // Sets the parameters and the function of `type`.
   static void describe(TypeData& type) {
      [&]<std::size_t... at>(std::index_sequence<at...>) {
         (type.parameters.push_back({std::get<at>(rows).name, typeNameOf<Storage<at>>()}), ...);
      }(Indexes{});
      type.make = &make;
   }
};

// Calls `use` with the `MakeFrom` by which the entity type `T` can be made; does not call it when
// there is none. A type is made from all its constants. A type that gives its base fixed constants
// is made from the constants that it adds.
template <class T, class Use>
void withMakingOf(Use&& use) {
   using FromAll = MakeFrom<T, decltype([] { return allConstants<T>(); })>;
   using FromOwn = MakeFrom<T, decltype([] { return ownRows<T, true>(); })>;
   if constexpr (FromAll::isPossible) {
      use(FromAll{});
   } else if constexpr (FromOwn::isPossible) {
      use(FromOwn{});
   }
}

// For an entity type. A type that cannot be made keeps no parameters and a null `make`.
template <class T>
void describeMaking(TypeData& type) {
   withMakingOf<T>([&]<class Make>(Make) { Make::describe(type); });
}

// `TypeData::make` of the types whose objects are made from one argument: a value with a text of
// its own, an enumeration, and a number, boolean or text.
template <class T>
std::any makeFromText(std::span<const std::any> values) {
   const auto text = argumentAs<Pello::String>(values[0], "argument", "text", typeNameOf<T>());
   return std::any{T{std::string_view{text}}};
}

template <Enumeration E>
std::any makeFromName(std::span<const std::any> values) {
   const auto name = argumentAs<Pello::String>(values[0], "argument", "name", typeNameOf<E>());
   return std::any{static_cast<E>(enumByName(enumTable<E>(), name))};
}

template <class T>
std::any makeFromValue(std::span<const std::any> values) {
   return std::any{argumentAs<T>(values[0], "argument", "value", typeNameOf<T>())};
}

// For all other types, each of which can be made. A value is made from all its attributes.
template <class T>
void describeMakingValue(TypeData& type) {
   if constexpr (Enumeration<T>) {
      type.parameters = {{"name", typeNameOf<Pello::String>()}};
      type.make = &makeFromName<T>;
   } else if constexpr (TextualValue<T>) {
      type.parameters = {{"text", typeNameOf<Pello::String>()}};
      type.make = &makeFromText<T>;
   } else if constexpr (RowValue<T>) {
      MakeFrom<T, decltype([] { return ownRows<T, false>(); })>::describe(type);
   } else {
      type.parameters = {{"value", typeNameOf<T>()}};
      type.make = &makeFromValue<T>;
   }
}

} // namespace Kiv::Detail
