// `visitStorage`: shows an attribute of any kind to a visitor; `visitValue` shows a value. Part of
// Reflection.h, for it alone. Relies on ValueOps, and on ReflectionText for the kinds of storage.
#pragma once

#include "Kiv/ValueVisitor.h"
#include "Kiv/detail/ReflectionText.h"

#include <algorithm>
#include <concepts>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace Kiv::Detail {

// Shows `value`. `T` is a number, a boolean, text, an enumeration or a value. A value of one
// attribute is shown as that attribute, as in its generic text.
template <class T>
void visitValue(ValueVisitor& visitor, const T& value) {
   if constexpr (std::same_as<T, bool>) {
      visitor.boolean(value);
   } else if constexpr (std::same_as<T, double>) {
      visitor.real(value);
   } else if constexpr (std::is_unsigned_v<T>) {
      visitor.number(value);
   } else if constexpr (Enumeration<T>) {
      visitor.text(enumName(enumTable<T>(), static_cast<U8>(value)));
   } else if constexpr (TextualValue<T>) {
      visitor.text(std::string_view{value.stringValue()});
   } else if constexpr (CompositeValue<T>) {
      visitor.beginObject();
      forEachRow<T>([&](const auto& row) {
         visitor.member(row.name);
         visitValue(visitor, value.*row.member);
      });
      visitor.endObject();
   } else if constexpr (RowValue<T>) {
      visitValue(visitor, value.*rowAt<T, 0>().member);
   } else {
      visitor.text(std::string_view{value});
   }
}

// A key as the name of a member: text and names without the quotes of the generic text, everything
// else as its generic text.
template <class T>
std::string memberName(const T& key) {
   if constexpr (Enumeration<T>) {
      return enumName(enumTable<T>(), static_cast<U8>(key));
   } else if constexpr (TextualValue<T>) {
      return std::string{std::string_view{key.stringValue()}};
   } else if constexpr (std::convertible_to<T, std::string_view>) {
      return std::string{std::string_view{key}};
   } else {
      return valueText(key);
   }
}

// Calls `show(iterator)` for every entry. The order of a hash collection has no meaning, so it is
// shown in the order of its keys as texts: equal collections look equal.
template <class Collection, class Show>
void inShownOrder(const Collection& collection, Show&& show) {
   if constexpr (Collection::isOrdered) {
      for (auto at = collection.begin(); at != collection.end(); ++at) {
         show(at);
      }
   } else {
      std::vector<std::pair<std::string, typename Collection::Iterator>> entries;
      entries.reserve(collection.size());
      for (auto at = collection.begin(); at != collection.end(); ++at) {
         entries.emplace_back(memberName(at.key()), at);
      }
      std::ranges::sort(entries, {},
                        [](const auto& entry) -> const std::string& { return entry.first; });
      for (const auto& entry : entries) {
         show(entry.second);
      }
   }
}

// Shows `storage`, which is a value, a counted reference or a collection. A reference is shown as
// `holds` says: the whole object, or its key.
template <Holds holds, class T>
void visitStorage(ValueVisitor& visitor, const T& storage);

// A set as a list, a collection by key as an object.
template <class Collection>
void visitCollection(ValueVisitor& visitor, const Collection& collection) {
   if constexpr (Collection::isSet) {
      visitor.beginList();
      inShownOrder(collection, [&](const auto& at) { visitValue(visitor, at.key()); });
      visitor.endList();
   } else {
      visitor.beginObject();
      inShownOrder(collection, [&](const auto& at) {
         visitor.member(memberName(at.key()));
         visitStorage<Collection::ownsElements ? Holds::own : Holds::other>(visitor, at.value());
      });
      visitor.endObject();
   }
}

template <Holds holds, class T>
void visitStorage(ValueVisitor& visitor, const T& storage) {
   if constexpr (Reference<T>) {
      if (storage == nullptr) {
         visitor.null();
      } else if constexpr (holds == Holds::own) {
         visitEntity(*storage, visitor);
      } else {
         visitEntityKey(*storage, visitor);
      }
   } else if constexpr (Printable<T>) {
      visitValue(visitor, storage);
   } else {
      visitCollection(visitor, storage);
   }
}

} // namespace Kiv::Detail
