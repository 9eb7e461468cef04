// `typeNameOf<T>()`: the name of a type in messages and listings: `U32`, `Acl::AclType`,
// `Pello::Ptr<… const>`, `Kiv::RbTreeMap<U32, …>`. Relies on the names that types declare
// (`kivTypeName`, `kivCollectionName`), because the names that compilers make differ.
#pragma once

#include "Kiv/Enumeration.h"
#include "Pello/Ptr.h"
#include "Pello/String.h"

#include <concepts>
#include <string>
#include <type_traits>

namespace Kiv {

// `T` is a type of the framework, a counted reference to an entity, or a collection of these;
// others do not compile.
template <class T>
std::string typeNameOf();

namespace Detail {

// Numbers, booleans, text, enumerations, values and entities.
template <class T>
struct TypeName {
   static std::string text() {
      if constexpr (Enumeration<T>) {
         return std::string{enumTable<T>().typeName};
      } else if constexpr (requires { T::kivTypeName; }) {
         return std::string{T::kivTypeName};
      } else if constexpr (std::same_as<T, bool>) {
         return "bool";
      } else if constexpr (std::same_as<T, double>) {
         return "double";
      } else if constexpr (std::same_as<T, Pello::String>) {
         return "Pello::String";
      } else {
         static_assert(std::is_unsigned_v<T>, "not a type of the framework");
         return std::string{"U"}.append(std::to_string(sizeof(T) * 8));
      }
   }
};

template <class T>
struct TypeName<Pello::Ptr<T>> {
   static std::string text() {
      return "Pello::Ptr<" + typeNameOf<std::remove_const_t<T>>() +
             (std::is_const_v<T> ? " const>" : ">");
   }
};

// A collection: its key and, unless it is a set, its elements; neither hash constants nor the
// accessor of the key.
template <class T>
   requires requires { T::kivCollectionName; }
struct TypeName<T> {
   static std::string text() {
      std::string name = std::string{T::kivCollectionName} + "<" + typeNameOf<typename T::Key>();
      if constexpr (!T::isSet) {
         name += ", " + typeNameOf<typename T::Value>();
      }
      return name + ">";
   }
};

} // namespace Detail

template <class T>
std::string typeNameOf() {
   return Detail::TypeName<T>::text();
}

} // namespace Kiv
