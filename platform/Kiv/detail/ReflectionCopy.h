// Copying everything that can be set: `copyPart`, and `copyEntity` for a whole object. Part of
// Reflection.h, for it alone. Relies on Copies for references among the parts of one object.
#pragma once

#include "Kiv/Entity.h"
#include "Kiv/TypeData.h"
#include "Kiv/detail/Copies.h"
#include "Kiv/detail/ReflectionText.h"
#include "Pello/Ptr.h"

#include <concepts>
#include <cstddef>
#include <string>
#include <type_traits>
#include <utility>

namespace Kiv::Detail {

// Makes `to` hold an element like `source`, in place of one that cannot become like it.
template <class Report, class Collection, class Element>
void copyOwnElement(Report report, Collection& to, const Element& source, Copies& copies) {
   const auto& key = (source.*Collection::keyAccessor)();
   const TypeData& type = source.typeData();
   if (const auto existing = to.get(key); existing != nullptr && canBecome(*existing, source)) {
      type.copyPart(*existing, source, copies);
   } else if (type.makeLike != nullptr) {
      const Pello::Ptr<Entity> made = type.makeLike(source);
      type.copyPart(*made, source, copies);
      to.put(report, Pello::Ptr<Element>{static_cast<Element*>(made.get())});
   } else {
      throw NameError{std::string{type.name} + " cannot be copied by name"};
   }
}

// `value`, or the reference that a copy has in its place.
template <class T>
T copiedValue(const T& value, const Copies& copies) {
   if constexpr (Reference<T>) {
      return copies.of(value);
   } else {
      return value;
   }
}

template <class Report, class Collection>
void copyCollection(Report report, Collection& to, const Collection& from, Copies& copies) {
   if (&to == &from) {
      return;
   }
   for (auto at = from.begin(); at != from.end(); ++at) {
      if constexpr (requires { Collection::keyAccessor; }) {
         copyOwnElement(report, to, *at.value(), copies);
      } else if constexpr (requires { to.is(report, at.key(), at.value()); }) {
         to.is(report, at.key(), copiedValue(at.value(), copies));
      } else if constexpr (requires { to.is(report, at.key())->typeData(); }) {
         const auto made = to.is(report, at.key());
         made->typeData().copyPart(*made, *at.value(), copies);
      } else {
         to.is(report, at.key());
      }
   }
}

template <U16 id, class Owner, class T>
void copyChild(Owner& to, Pello::Ptr<T>& target, const T& source, Copies& copies) {
   Pello::Ptr<T> made;
   if constexpr (ChildKey<T>) {
      made = instantiateChild<id>(to, target);
   } else {
      made = instantiateChild<id>(to, target, source.name());
   }
   made->typeData().copyPart(*made, source, copies);
}

template <class T, std::size_t index>
void copyAttribute(T& to, const T& from, Copies& copies) {
   constexpr auto row = rowAt<T, index>();
   auto& target = to.*row.member;
   const auto& source = from.*row.member;
   if constexpr (row.kind == AttributeKind::value) {
      T::kivSet(RowId<row.id>{}, to, copiedValue(source, copies));
   } else if constexpr (row.kind == AttributeKind::collection) {
      copyCollection(collectionReport<row.id>(to), target, source, copies);
   } else if constexpr (row.kind == AttributeKind::child) {
      if (source != nullptr) {
         copyChild<row.id>(to, target, *source, copies);
      }
   }
}

// A collection of counted references to objects that others own.
template <class Collection>
concept ReferenceCollection = requires(const Collection& collection) {
   requires !Collection::ownsElements;
   requires Reference<std::remove_cvref_t<decltype(collection.begin().value())>>;
};

// Replaces what the copy before it could not know yet: references to later copies.
template <class T, std::size_t index>
void linkAttribute(T& to, const T& from, const Copies& copies) {
   constexpr auto row = rowAt<T, index>();
   using Storage = typename decltype(row)::StorageType;
   const auto& source = from.*row.member;
   if constexpr (row.kind == AttributeKind::value && Reference<Storage>) {
      if (const auto copy = copies.of(source); copy != source && to.*row.member == source) {
         T::kivSet(RowId<row.id>{}, to, copy);
      }
   } else if constexpr (ReferenceCollection<Storage>) {
      auto& target = to.*row.member;
      for (auto at = source.begin(); at != source.end(); ++at) {
         const auto copy = copies.of(at.value());
         if (copy != at.value() && target.get(at.key()) == at.value()) {
            target.is(collectionReport<row.id>(to), at.key(), copy);
         }
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
void copyAttributes(T& target, const T& source, Copies& copies) {
   if constexpr (HasOwnCopy<T>) {
      target.copy(source);
   } else {
      if constexpr (requires { typename T::KivBase; }) {
         copyAttributes<typename T::KivBase>(target, source, copies);
      }
      [&]<std::size_t... index>(std::index_sequence<index...>) {
         (copyAttribute<T, index>(target, source, copies), ...);
      }(std::make_index_sequence<rowCount<T>()>{});
   }
}

template <class T>
void linkAttributes(T& target, const T& source, const Copies& copies) {
   if constexpr (!HasOwnCopy<T>) {
      if constexpr (requires { typename T::KivBase; }) {
         linkAttributes<typename T::KivBase>(target, source, copies);
      }
      [&]<std::size_t... index>(std::index_sequence<index...>) {
         (linkAttribute<T, index>(target, source, copies), ...);
      }(std::make_index_sequence<rowCount<T>()>{});
   }
}

template <class T>
void linkEntity(Entity& to, const Entity& from, const Copies& copies) {
   linkAttributes<T>(static_cast<T&>(to), static_cast<const T&>(from), copies);
}

// Copies a part of what `copies` is about, or the whole. Throws NameError when one of the two is no
// `T`.
template <class T>
void copyPart(Entity& to, const Entity& from, Copies& copies) {
   for (const Entity* entity : {static_cast<const Entity*>(&to), &from}) {
      if (&entity->typeData() != &T::kivTypeData()) {
         throw NameError{"copying " + std::string{entity->typeData().name} + ": expected " +
                         std::string{T::kivTypeName}};
      }
   }
   copies.add(from, to, &linkEntity<T>);
   copyAttributes<T>(static_cast<T&>(to), static_cast<const T&>(from), copies);
}

template <class T>
void copyEntity(Entity& to, const Entity& from) {
   Copies copies;
   copyPart<T>(to, from, copies);
   copies.link();
}

} // namespace Kiv::Detail
