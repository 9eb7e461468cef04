// `printStorage`: the generic text of an attribute of any kind. Part of Reflection.h, for it alone.
// Relies on ValueOps for values.
#pragma once

#include "Kiv/Entity.h"
#include "Kiv/TypeData.h"
#include "Kiv/detail/ValueOps.h"
#include "Pello/Ptr.h"

#include <string>

namespace Kiv::Detail {

// A type with `ValueOps`: a number, a boolean, text, an enumeration or a value.
template <class T>
concept Printable = requires(std::string& out, const T& value) { ValueOps<T>::print(out, value); };

// A counted reference to an entity.
template <class T>
concept Reference = requires(const T& storage) {
   typename T::Element;
   storage->typeData();
};

// How an attribute or element holds an entity: as its own, or as a reference to another's.
enum class Holds : U8 { own, other };

// The text of what distinguishes `entity` from others of its type: its first constant attribute, or
// the name of its type when it has none.
inline std::string keyText(const Entity& entity) {
   const TypeData& type = entity.typeData();
   for (const AttributeData& attribute : type.attributes) {
      if (attribute.kind == AttributeKind::constant) {
         return attribute.text(ownerAddress(entity));
      }
   }
   return std::string{type.name};
}

// Appends the text of `storage`, which is a value, a counted reference or a collection. A reference
// is printed as `holds` says: the whole object, or its key; a null one is `null`.
template <Holds holds, class T>
void printStorage(std::string& out, const T& storage);

// `{key: value, …}`, or `{key, …}` for sets.
template <class Collection>
void printCollection(std::string& out, const Collection& collection) {
   const char* separator = "{";
   for (auto at = collection.begin(); at != collection.end(); ++at) {
      out += separator;
      separator = ", ";
      printStorage<Holds::other>(out, at.key());
      if constexpr (!Collection::isSet) {
         out += ": ";
         printStorage<Collection::ownsElements ? Holds::own : Holds::other>(out, at.value());
      }
   }
   out += collection.empty() ? "{}" : "}";
}

template <Holds holds, class T>
void printStorage(std::string& out, const T& storage) {
   if constexpr (Reference<T>) {
      if (storage == nullptr) {
         out += "null";
      } else if constexpr (holds == Holds::own) {
         out += storage->typeData().entityText(*storage);
      } else {
         out += keyText(*storage);
      }
   } else if constexpr (Printable<T>) {
      ValueOps<T>::print(out, storage);
   } else {
      printCollection(out, storage);
   }
}

} // namespace Kiv::Detail
