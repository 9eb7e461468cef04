// `describeEntity` and `describeValue` make the type descriptors from the rows, and the
// `KIV_DEFINE_…` macros put them into the source of the owning library. Only such sources include
// this file.
#pragma once

#include "Kiv/Entity.h"
#include "Kiv/Operation.h"
#include "Kiv/TypeData.h"
#include "Kiv/Value.h"
#include "Kiv/ValueOps.h"
#include "Pello/Ptr.h"

#include <any>
#include <concepts>
#include <functional>
#include <sstream>
#include <string>
#include <type_traits>

namespace Kiv {

namespace Detail {

template <class T>
concept Printable = requires(std::string& out, const T& value) { ValueOps<T>::print(out, value); };

template <class T>
void printStorage(std::string& out, const T& storage);

template <class T>
void printStorage(std::string& out, const Pello::Ptr<T>& reference) {
   out += reference == nullptr ? "null" : reference->typeData().entityText(*reference);
}

// `{key: value, …}`, or `{key, …}` for sets.
template <class Collection>
void printCollection(std::string& out, const Collection& collection) {
   const char* separator = "{";
   for (const auto& at : collection) {
      out += separator;
      separator = ", ";
      printStorage(out, at.key());
      if constexpr (!Collection::isSet) {
         out += ": ";
         printStorage(out, at.value());
      }
   }
   out += collection.empty() ? "{}" : "}";
}

template <class T>
void printStorage(std::string& out, const T& storage) {
   if constexpr (Printable<T>) {
      ValueOps<T>::print(out, storage);
   } else {
      printCollection(out, storage);
   }
}

// `Described` is the type that is described, `Owner` the one of its bases that has the attribute.
template <class Described, class Owner, class GetRow>
std::string attributeText(const void* described) {
   const Owner& owner = *static_cast<const Described*>(described);
   std::string out;
   printStorage(out, owner.*GetRow{}().member);
   return out;
}

template <class Owner, class GetRow>
void setAttributeText(Entity& owner, std::string_view text) {
   constexpr auto row = GetRow{}();
   using Storage = typename decltype(row)::StorageType;
   auto& object = static_cast<Owner&>(owner);
   setAttribute<row.id>(object, object.*row.member, parseValue<Storage>(text));
}

template <class T>
concept EntityCollection = requires(const T& collection) {
   { *(*collection.begin()).value() } -> std::convertible_to<Entity&>;
};

template <class Owner, class GetRow>
void forEachEntity(const Entity& owner, const std::function<void(Entity&)>& visit) {
   for (const auto& at : static_cast<const Owner&>(owner).*GetRow{}().member) {
      visit(*at.value());
   }
}

template <class Described, class Owner, std::size_t index>
AttributeData describeAttribute() {
   struct GetRow {
      constexpr auto operator()() const { return rowAt<Owner, index>(); }
   };
   constexpr auto row = rowAt<Owner, index>();
   AttributeData attribute{row.id,  row.name, row.kind, &attributeText<Described, Owner, GetRow>,
                           nullptr, nullptr};
   if constexpr (EntityCollection<typename decltype(row)::StorageType>) {
      attribute.forEachEntity = &forEachEntity<Owner, GetRow>;
   }
   if constexpr (std::is_base_of_v<Entity, Owner> && row.kind == AttributeKind::value &&
                 Printable<typename decltype(row)::StorageType>) {
      attribute.setText = &setAttributeText<Owner, GetRow>;
   }
   return attribute;
}

template <class Described, class Owner = Described>
void describeAttributes(std::vector<AttributeData>& attributes) {
   if constexpr (requires { typename Owner::KivBase; }) {
      describeAttributes<Described, typename Owner::KivBase>(attributes);
   }
   [&]<std::size_t... index>(std::index_sequence<index...>) {
      (attributes.push_back(describeAttribute<Described, Owner, index>()), ...);
   }(std::make_index_sequence<rowCount<Owner>()>{});
}

template <class Report, class Collection>
void copyCollection(Report report, Collection& to, const Collection& from) {
   for (const auto& at : from) {
      if constexpr (requires { to.is(report, at.key(), at.value()); }) {
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
      setAttribute<row.id>(to, target, source);
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

template <class T>
void copyEntity(Entity& to, const Entity& from) {
   copyAttributes<T>(static_cast<T&>(to), static_cast<const T&>(from));
}

// `Name::Space::Type(first=…, second=…)`, inherited attributes first.
template <class T>
std::string entityText(const Entity& entity) {
   std::string out{T::kivTypeName};
   const char* separator = "(";
   for (const AttributeData& attribute : T::kivTypeData().attributes) {
      out.append(separator).append(attribute.name).append("=");
      out += attribute.text(static_cast<const T*>(&entity));
      separator = ", ";
   }
   return out + (*separator == '(' ? "()" : ")");
}

template <class T>
std::string displayText(const void* value) {
   std::ostringstream out;
   out << *static_cast<const T*>(value);
   return out.str();
}

} // namespace Detail

// The descriptor of an entity type.
template <class T>
TypeData describeEntity() {
   static_assert(alignof(T) <= 16, "the slab aligns objects to 16 bytes");
   TypeData type{};
   type.name = T::kivTypeName;
   type.kind = TypeKind::entity;
   type.size = sizeof(T);
   Detail::describeAttributes<T>(type.attributes);
   describeOperations<T>(type.operations);
   type.tracker = &T::memAllocationTracker_;
   type.entityText = &Detail::entityText<T>;
   type.copy = &Detail::copyEntity<T>;
   return type;
}

// The descriptor of anything that has a generic value text.
template <class T>
TypeData describeValue(std::string_view name, TypeKind kind) {
   TypeData type{};
   type.name = name;
   type.kind = kind;
   type.size = sizeof(T);
   if constexpr (RowValue<T>) {
      Detail::describeAttributes<T>(type.attributes);
   }
   type.valueText = [](const void* value) { return valueText(*static_cast<const T*>(value)); };
   type.displayText = &Detail::displayText<T>;
   type.parse = [](std::string_view text) { return std::any{parseValue<T>(text)}; };
   type.equal = [](const void* a, const void* b) {
      return *static_cast<const T*>(a) == *static_cast<const T*>(b);
   };
   type.defaultObject = std::any{T{}};
   type.anyBytes = anyBytes<T>();
   return type;
}

} // namespace Kiv

// Defines what `KIV_ENTITY` declared. Stands at global scope.
#define KIV_DEFINE_ENTITY(Type)                                                                    \
   constinit Pello::AllocationTracker Type::memAllocationTracker_{Type::kivTypeName,               \
                                                                  sizeof(Type)};                   \
   const Kiv::TypeData& Type::kivTypeData() {                                                      \
      static const Kiv::TypeData data = Kiv::describeEntity<Type>();                               \
      return data;                                                                                 \
   }                                                                                               \
   const Kiv::TypeData& Type::typeData() const {                                                   \
      return kivTypeData();                                                                        \
   }

// Defines what `KIV_VALUE` declared. Stands at global scope.
#define KIV_DEFINE_VALUE(Type)                                                                     \
   const Kiv::TypeData& Type::kivTypeData() {                                                      \
      static const Kiv::TypeData data =                                                            \
            Kiv::describeValue<Type>(Type::kivTypeName, Kiv::TypeKind::value);                     \
      return data;                                                                                 \
   }

// Defines what `KIV_ENUM` declared: the qualified name, then `{number, "name"}` per enumerator.
// Stands in the namespace in which `KIV_ENUM` stands.
#define KIV_DEFINE_ENUM(Enum, qualifiedName, ...)                                                  \
   const Kiv::EnumTable& kivEnumTable(std::type_identity<Enum>) {                                  \
      static constexpr Kiv::Enumerator enumerators[] = {__VA_ARGS__};                              \
      static constexpr Kiv::EnumTable table{qualifiedName, enumerators};                           \
      return table;                                                                                \
   }                                                                                               \
   const Kiv::TypeData& kivTypeData(std::type_identity<Enum>) {                                    \
      static const Kiv::TypeData data =                                                            \
            Kiv::describeValue<Enum>(qualifiedName, Kiv::TypeKind::enumeration);                   \
      return data;                                                                                 \
   }
