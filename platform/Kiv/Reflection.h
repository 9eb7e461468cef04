// `KIV_DEFINE_ENTITY`, `KIV_DEFINE_VALUE` and `KIV_DEFINE_ENUM` put the descriptor of a type into
// the source of the library that owns the type; `describeEntity` and `describeValue` make it from
// the rows. Relies on everything that is known about types at compile time.
//
// Only such sources include this file. A descriptor made in a header would exist once per library,
// and reflection compares types by the address of the descriptor.
#pragma once

#include "Kiv/Entity.h"
#include "Kiv/TypeData.h"
#include "Kiv/TypeRegistry.h"
#include "Kiv/Value.h"
#include "Kiv/detail/Arguments.h"
#include "Kiv/detail/ReflectionCopy.h"
#include "Kiv/detail/ReflectionMake.h"
#include "Kiv/detail/ReflectionOperation.h"
#include "Kiv/detail/ReflectionText.h"
#include "Kiv/detail/ReflectionVisit.h"
#include "Kiv/detail/TypeNames.h"
#include "Kiv/detail/ValueOps.h"

#include <any>
#include <concepts>
#include <cstddef>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace Kiv {

namespace Detail {

// The templates below become the functions in `AttributeData`, which says what each does.
// `Described` is the type that is described, `Owner` is the same or that base of it which declares
// the attribute, and `GetRow` is a type without data whose call gives the row, because a function
// pointer carries no data.

// The member. `described` points to a `Described`; the way to a base goes through that type,
// because a base may stand at another address.
template <class Described, class Owner, class GetRow>
const auto& storageOf(const void* described) {
   const Owner& owner = *static_cast<const Described*>(described);
   return owner.*GetRow{}().member;
}

// Children are shown whole; a reference that is a plain attribute is shown as a key.
template <class GetRow>
constexpr Holds holdsOf() {
   return GetRow{}().kind == AttributeKind::child ? Holds::own : Holds::other;
}

template <class Described, class Owner, class GetRow>
std::string attributeText(const void* described) {
   std::string out;
   printStorage<holdsOf<GetRow>()>(out, storageOf<Described, Owner, GetRow>(described));
   return out;
}

template <class Described, class Owner, class GetRow>
std::any attributeValue(const void* described) {
   return std::any{storageOf<Described, Owner, GetRow>(described)};
}

template <class Described, class Owner, class GetRow>
void visitAttribute(const void* described, ValueVisitor& visitor) {
   visitStorage<holdsOf<GetRow>()>(visitor, storageOf<Described, Owner, GetRow>(described));
}

template <class Owner, class GetRow>
void setAttributeValue(Entity& owner, const std::any& value) {
   constexpr auto row = GetRow{}();
   using Storage = typename decltype(row)::StorageType;
   Owner::kivSet(RowId<row.id>{}, static_cast<Owner&>(owner),
                 argumentAs<Storage>(value, "attribute", row.name, Owner::kivTypeName));
}

template <class Owner, class GetRow>
void setAttributeText(Entity& owner, std::string_view text) {
   constexpr auto row = GetRow{}();
   using Storage = typename decltype(row)::StorageType;
   Owner::kivSet(RowId<row.id>{}, static_cast<Owner&>(owner), parseValue<Storage>(text));
}

template <class Described, class Owner, class GetRow>
std::size_t countElements(const void* described) {
   return storageOf<Described, Owner, GetRow>(described).size();
}

template <class Described, class Owner, class GetRow>
void forEachElement(const void* described,
                    Pello::FunctionRef<void(const std::any&, const std::any&)> visit) {
   const auto& collection = storageOf<Described, Owner, GetRow>(described);
   for (auto at = collection.begin(); at != collection.end(); ++at) {
      if constexpr (std::remove_cvref_t<decltype(collection)>::isSet) {
         visit(std::any{at.key()}, std::any{});
      } else {
         visit(std::any{at.key()}, std::any{at.value()});
      }
   }
}

// A collection whose elements are entities, owned or referred to.
template <class T>
concept EntityCollection = requires(const T& collection) {
   { *collection.begin().value() } -> std::convertible_to<Entity&>;
};

template <class Owner, class GetRow>
void forEachEntity(const Entity& owner, Pello::FunctionRef<void(Entity&)> visit) {
   for (const auto& at : static_cast<const Owner&>(owner).*GetRow{}().member) {
      visit(*at.value());
   }
}

// The descriptor of row number `index` of `Owner`. What does not apply to the attribute stays null.
template <class Described, class Owner, std::size_t index>
AttributeData describeAttribute() {
   struct GetRow {
      constexpr auto operator()() const { return rowAt<Owner, index>(); }
   };
   constexpr auto row = rowAt<Owner, index>();
   using Storage = typename decltype(row)::StorageType;
   AttributeData attribute{};
   attribute.id = row.id;
   attribute.name = row.name;
   attribute.kind = row.kind;
   attribute.type = typeNameOf<Storage>();
   attribute.text = &attributeText<Described, Owner, GetRow>;
   attribute.visit = &visitAttribute<Described, Owner, GetRow>;
   if constexpr (row.kind == AttributeKind::collection) {
      attribute.count = &countElements<Described, Owner, GetRow>;
      attribute.forEach = &forEachElement<Described, Owner, GetRow>;
      if constexpr (EntityCollection<Storage>) {
         attribute.forEachEntity = &forEachEntity<Owner, GetRow>;
      }
   } else {
      attribute.get = &attributeValue<Described, Owner, GetRow>;
   }
   if constexpr (std::is_base_of_v<Entity, Owner> && row.kind == AttributeKind::value) {
      attribute.set = &setAttributeValue<Owner, GetRow>;
      if constexpr (Printable<Storage>) {
         attribute.setText = &setAttributeText<Owner, GetRow>;
      }
   }
   return attribute;
}

// Appends the attributes of `Owner`, those of its bases first.
template <class Described, class Owner = Described>
void describeAttributes(std::vector<AttributeData>& attributes) {
   if constexpr (requires { typename Owner::KivBase; }) {
      describeAttributes<Described, typename Owner::KivBase>(attributes);
   }
   [&]<std::size_t... index>(std::index_sequence<index...>) {
      (attributes.push_back(describeAttribute<Described, Owner, index>()), ...);
   }(std::make_index_sequence<rowCount<Owner>()>{});
}

// `Make` is what `withMakingOf` found for `T`.
template <class T, class Make>
Pello::Ptr<Entity> makeLike(const Entity& from) {
   return Make::makeLike(static_cast<const T&>(from));
}

template <class T, class Make>
Pello::Ptr<Entity> cloneEntity(const Entity& from) {
   Pello::Ptr<Entity> made = makeLike<T, Make>(from);
   copyEntity<T>(*made, from);
   return made;
}

// Sets the functions that copy. A type that cannot be made from its constants has no `clone`.
template <class T>
void describeCopying(TypeData& type) {
   type.copy = &copyEntity<T>;
   type.copyPart = &copyPart<T>;
   withMakingOf<T>([&]<class Make>(Make) {
      type.clone = &cloneEntity<T, Make>;
      type.makeLike = &makeLike<T, Make>;
   });
}

// `Name::Space::Type(first=…, second=…)`, inherited attributes first. `entity` is a `T` exactly.
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

// What `T` writes to a stream.
template <class T>
std::string displayText(const void* value) {
   std::ostringstream out;
   out << *static_cast<const T*>(value);
   return out.str();
}

} // namespace Detail

// The descriptor of the entity type `T`. Called by `KIV_DEFINE_ENTITY` only.
template <class T>
TypeData describeEntity() {
   static_assert(alignof(T) <= 16, "the slab aligns objects to 16 bytes");
   TypeData type{};
   type.name = T::kivTypeName;
   type.kind = TypeKind::entity;
   type.size = sizeof(T);
   Detail::describeAttributes<T>(type.attributes);
   describeOperations<T>(type.operations);
   Detail::describeMaking<T>(type);
   type.tracker = &T::memAllocationTracker_;
   type.asEntity = [](const std::any& made) -> Pello::Ptr<Entity> {
      const auto* entity = std::any_cast<Pello::Ptr<T>>(&made);
      return entity == nullptr ? Pello::Ptr<Entity>{} : Pello::Ptr<Entity>{*entity};
   };
   type.entityText = &Detail::entityText<T>;
   Detail::describeCopying<T>(type);
   return type;
}

// The descriptor of a type that is not an entity: a number, a boolean, text, an enumeration or a
// value. `T` has `ValueOps`, a default value, `==` and stream output. `name` is qualified, and must
// live as long as the descriptor. Called by the macros below, and for the framework's own types.
template <class T>
TypeData describeValue(std::string_view name, TypeKind kind) {
   TypeData type{};
   type.name = name;
   type.kind = kind;
   type.size = sizeof(T);
   if constexpr (RowValue<T>) {
      Detail::describeAttributes<T>(type.attributes);
   }
   Detail::describeMakingValue<T>(type);
   type.visitValue = [](const void* value, ValueVisitor& visitor) {
      Detail::visitValue(visitor, *static_cast<const T*>(value));
   };
   type.valueText = [](const void* value) { return valueText(*static_cast<const T*>(value)); };
   type.displayText = &Detail::displayText<T>;
   type.parse = [](std::string_view text) { return std::any{parseValue<T>(text)}; };
   type.equal = [](const void* a, const void* b) {
      return *static_cast<const T*>(a) == *static_cast<const T*>(b);
   };
   type.defaultObject = std::any{T{}};
   type.anyBytes = anyBytes<T>();
   if constexpr (Enumeration<T>) {
      type.enumeration = &enumTable<T>();
   }
   return type;
}

} // namespace Kiv

// Defines what `KIV_ENTITY` declared: the allocation tracker and the descriptor, which is made at
// its first use. `Type` is qualified. Stands at global scope, once in the program.
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

// Defines the descriptor that `KIV_VALUE` declared, or that a value with a text of its own declares
// as `kivTypeData()`. Stands at global scope, once in the program.
#define KIV_DEFINE_VALUE(Type)                                                                     \
   const Kiv::TypeData& Type::kivTypeData() {                                                      \
      static const Kiv::TypeData data =                                                            \
            Kiv::describeValue<Type>(Type::kivTypeName, Kiv::TypeKind::value);                     \
      return data;                                                                                 \
   }

// Defines what `KIV_ENUM` declared. After the qualified name comes `{number, "name"}` for each
// enumerator, in the order in which messages list them. Stands in the namespace of `KIV_ENUM`, once
// in the program.
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
