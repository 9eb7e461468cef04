// `copyEntity`: copies all attributes but the constants of an object; `copyPart` does so for one of
// several objects that are copied together. Part of Reflection.h, for it alone. Relies on Copies.
//
// Copying has two passes. The first copies attribute by attribute and makes children and elements.
// A reference to a part that is copied only later still refers to the source then; the second pass
// (`link…`) sets these references. `T` is the class whose attributes are
// copied.
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

// Makes `to` hold a copy of `source`, an element of a `HashMap2018`. An existing element under the
// same key is kept when it can become equal, because others may refer to it; else a new one
// replaces it. Throws NameError when a new one is needed and the type cannot be made from its
// constants.
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

// What the copy gets for `value`: the value itself, or for a counted reference what `Copies` says.
template <class T>
T copiedValue(const T& value, const Copies& copies) {
   if constexpr (Reference<T>) {
      return copies.of(value);
   } else {
      return value;
   }
}

// Copies the elements of `from` into `to`; what only `to` has stays. The branches are the kinds of
// collections: `HashMap2018`, `RbTreeMap`, `RbTreeEntityMap`, sets.
template <class Report, class Collection>
void copyCollection(Report report, Collection& to, const Collection& from, Copies& copies) {
   // An object that is copied to itself: a collection must not change while it is walked.
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

// Copies the child `source` to the child of `to`, which is made when it is missing.
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

// Copies attribute number `index`. A child that the source lacks stays in `to`.
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

// A collection of counted references to objects that others own: an `RbTreeMap` of references.
template <class Collection>
concept ReferenceCollection = requires(const Collection& collection) {
   requires !Collection::ownsElements;
   requires Reference<std::remove_cvref_t<decltype(collection.begin().value())>>;
};

// Sets attribute number `index` again where it refers to an object that was copied later. It does
// so only while `to` still has the reference from the source: a setter with a rule, or a
// subscriber, may have put another in its place.
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

// Whether `T` itself declares `copy(const T&)`, be it one of several functions of that name. A
// `copy` that `T` inherits takes the base class and does not count: it knows nothing of what `T`
// adds.
template <class T>
concept HasOwnCopy = requires { []<class Result>(Result (T::*)(const T&)) {}(&T::copy); };

// Copies the attributes of `T` and its bases. A type's own `copy` is preferred, and then copies the
// inherited attributes as well: it knows which ones belong together.
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

// The second pass for the attributes of `T` and its bases. What a type's own `copy` has set stays.
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

// The same as a `Copies::Link`.
template <class T>
void linkEntity(Entity& to, const Entity& from, const Copies& copies) {
   linkAttributes<T>(static_cast<T&>(to), static_cast<const T&>(from), copies);
}

// The first pass for one object, which is entered in `copies`. Throws NameError when one of the two
// is not exactly a `T`.
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

// Copies `from` to `to` with everything that `from` owns. Throws as `copyPart`.
template <class T>
void copyEntity(Entity& to, const Entity& from) {
   Copies copies;
   copyPart<T>(to, from, copies);
   copies.link();
}

} // namespace Kiv::Detail
