// Making objects from arguments: `describeMaking` for entities, `describeMakingValue` for values.
// Part of Reflection.h, for it alone.
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

// The rows of `T` itself, all or the constant ones, as a tuple.
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

// The constant ones, inherited ones first.
template <class T>
constexpr auto allConstants() {
   if constexpr (requires { typename T::KivBase; }) {
      return std::tuple_cat(allConstants<typename T::KivBase>(), ownRows<T, true>());
   } else {
      return std::tuple<>{};
   }
}

// Makes a `T` out of the attributes whose rows `GetRows{}()` gives.
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
   static constexpr bool isPossible = possible(Indexes{});

   static std::any make(std::span<const std::any> values) {
      return [&]<std::size_t... at>(std::index_sequence<at...>) -> std::any {
         // Braces fix the order in which arguments are looked at.
         std::tuple<Storage<at>...> arguments{argumentAs<Storage<at>>(
               values[at], "argument", std::get<at>(rows).name, T::kivTypeName)...};
         if constexpr (std::is_base_of_v<Entity, T>) {
            return std::any{Pello::Ptr<T>{new T(std::get<at>(arguments)...)}};
         } else {
            return std::any{T(std::get<at>(arguments)...)};
         }
      }(Indexes{});
   }

   // With the values of `source`.
   static T* makeLike(const T& source) {
      return [&]<std::size_t... at>(std::index_sequence<at...>) {
         return new T(source.*std::get<at>(rows).member...);
      }(Indexes{});
   }

   static void describe(TypeData& type) {
      [&]<std::size_t... at>(std::index_sequence<at...>) {
         (type.parameters.push_back({std::get<at>(rows).name, typeNameOf<Storage<at>>()}), ...);
      }(Indexes{});
      type.make = &make;
   }
};

// An entity is made from all its constant attributes, or else, where a base is given its own by the
// type, from those that the type adds. Calls `use` with the way to make it, if there is one.
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

template <class T>
void describeMaking(TypeData& type) {
   withMakingOf<T>([&]<class Make>(Make) { Make::describe(type); });
}

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
