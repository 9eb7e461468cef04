// Copying everything that can be set: `copyAttributes`. Part of Reflection.h, for it alone.
#pragma once

#include "Kiv/Entity.h"
#include "Kiv/TypeData.h"
#include "Pello/Ptr.h"

#include <concepts>
#include <cstddef>
#include <string>
#include <type_traits>
#include <utility>

namespace Kiv::Detail {

// Makes `to` hold an element like `source`, in place of one that cannot become like it.
template <class Report, class Collection, class Element>
void copyOwnElement(Report report, Collection& to, const Element& source) {
   const auto& key = (source.*Collection::keyAccessor)();
   if (const auto existing = to.get(key); existing != nullptr && canBecome(*existing, source)) {
      source.typeData().copy(*existing, source);
   } else if (source.typeData().clone != nullptr) {
      const Pello::Ptr<Entity> made = source.typeData().clone(source);
      to.put(report, Pello::Ptr<Element>{static_cast<Element*>(made.get())});
   } else {
      throw NameError{std::string{source.typeData().name} + " cannot be copied by name"};
   }
}

template <class Report, class Collection>
void copyCollection(Report report, Collection& to, const Collection& from) {
   if (&to == &from) {
      return;
   }
   for (const auto& at : from) {
      if constexpr (requires { Collection::keyAccessor; }) {
         copyOwnElement(report, to, *at.value());
      } else if constexpr (requires { to.is(report, at.key(), at.value()); }) {
         to.is(report, at.key(), at.value());
      } else if constexpr (requires { to.is(report, at.key())->typeData(); }) {
         const auto made = to.is(report, at.key());
         made->typeData().copy(*made, *at.value());
      } else {
         to.is(report, at.key());
      }
   }
}

template <U16 id, class Owner, class T>
void copyChild(Owner& to, Pello::Ptr<T>& target, const T& source) {
   Pello::Ptr<T> made;
   if constexpr (std::is_default_constructible_v<T>) {
      made = instantiateChild<id>(to, target);
   } else {
      made = instantiateNamedChild<id>(to, target, source.name());
   }
   made->typeData().copy(*made, source);
}

template <class T, std::size_t index>
void copyAttribute(T& to, const T& from) {
   constexpr auto row = rowAt<T, index>();
   auto& target = to.*row.member;
   const auto& source = from.*row.member;
   if constexpr (row.kind == AttributeKind::value) {
      T::kivSet(RowId<row.id>{}, to, source);
   } else if constexpr (row.kind == AttributeKind::collection) {
      copyCollection(collectionReport<row.id>(to), target, source);
   } else if constexpr (row.kind == AttributeKind::child) {
      if (source != nullptr) {
         copyChild<row.id>(to, target, *source);
      }
   }
}

// Whether the `copy` of `T` is the one that it inherits.
template <class T>
concept InheritsCopy =
      requires { requires std::same_as<decltype(&T::copy), decltype(&T::KivBase::copy)>; };

template <class T>
concept HasOwnCopy =
      requires(T& target, const T& source) { target.copy(source); } && !InheritsCopy<T>;

// A type's own `copy` knows better which attributes belong together, inherited ones included.
template <class T>
void copyAttributes(T& target, const T& source) {
   if constexpr (HasOwnCopy<T>) {
      target.copy(source);
   } else {
      if constexpr (requires { typename T::KivBase; }) {
         copyAttributes<typename T::KivBase>(target, source);
      }
      [&]<std::size_t... index>(std::index_sequence<index...>) {
         (copyAttribute<T, index>(target, source), ...);
      }(std::make_index_sequence<rowCount<T>()>{});
   }
}

} // namespace Kiv::Detail
