// The ordered collections: `RbTreeMap` (values or references by key), `RbTreeEntityMap` (entities
// made by the collection) and `RbTreeSet`, all iterated in ascending key order. Relies on
// `std::map`, a balanced binary search tree, with its nodes in the slab.
//
// All have the interface that detail/Collection.h describes. An entity declares one with
// `KIV_COLLECTION`, which passes the reporter. A key type can be copied and compared with `<`.
#pragma once

#include "Kiv/detail/Collection.h"
#include "Kiv/detail/Iterator.h"
#include "Pello/Ptr.h"
#include "Pello/Slab.h"
#include "Pello/Types.h"

#include <concepts>
#include <cstddef>
#include <map>
#include <string_view>
#include <type_traits>
#include <utility>

namespace Kiv {

namespace Detail {

// Serves the nodes of a standard container from the slab. All allocators are equal, so that nodes
// may move between containers.
template <class T>
struct SlabAllocator {
   using value_type = T;
   SlabAllocator() noexcept = default;
   template <class U>
   SlabAllocator(const SlabAllocator<U>&) noexcept {}
   T* allocate(std::size_t count) {
      return static_cast<T*>(Pello::slabAllocate(count * sizeof(T)));
   }
   void deallocate(T* memory, std::size_t count) noexcept {
      Pello::slabFree(memory, count * sizeof(T));
   }
   friend bool operator==(const SlabAllocator&, const SlabAllocator&) noexcept { return true; }
};

template <class Key, class Value>
using SlabMap = std::map<Key, Value, std::less<Key>, SlabAllocator<std::pair<const Key, Value>>>;

// How `EntryIterator` reads a node.
template <class KeyType, class ValueType>
struct ReadNode {
   using Key = KeyType;
   using Value = ValueType;
   static const Key& key(const std::pair<const Key, Value>& node) { return node.first; }
   static const Value& value(const std::pair<const Key, Value>& node) { return node.second; }
};

// The iterator of collections by key, for the container's iterator `At`.
template <class KeyType, class ValueType>
struct WalkEntries {
   template <class At>
   using Iterator = EntryIterator<At, ReadNode<KeyType, ValueType>>;
};

// The iterator of sets, likewise.
template <class KeyType>
struct WalkMembers {
   template <class At>
   using Iterator = MemberIterator<KeyType, At>;
};

// What all ordered collections have in common: reading and removing. `ValueType` is a value, a
// counted reference, or `bool` for sets; `Walk` gives the iterator.
template <class KeyType, class ValueType, class Walk = WalkEntries<KeyType, ValueType>>
class Tree {
 protected:
   using Map = SlabMap<KeyType, ValueType>;

 public:
   using Key = KeyType;
   using Value = ValueType;
   static constexpr bool isSet = false;
   static constexpr bool isOrdered = true;
   // One entry of the tree: `first` is the key, `second` the value.
   using Node = typename Map::value_type;

   // Walks the entries in ascending order. Valid until its own entry is removed; other entries may
   // come and go.
   using Iterator = typename Walk::template Iterator<typename Map::const_iterator>;

   std::size_t size() const noexcept { return map_.size(); }
   bool empty() const noexcept { return map_.empty(); }
   Iterator begin() const { return Iterator{map_.begin()}; }
   Iterator end() const { return Iterator{map_.end()}; }
   // Where the entry of `key` stands, or `end()`.
   Iterator find(const Key& key) const { return Iterator{map_.find(key)}; }
   bool has(const Key& key) const { return map_.contains(key); }
   // The value under `key`. When there is none: null for references, else a default value (`false`
   // for sets).
   ValueType get(const Key& key) const {
      const auto found = map_.find(key);
      return found == map_.end() ? ValueType{} : found->second;
   }

   // Removes the entry of `key` and returns its value; when there is none, returns what `get` does
   // and reports nothing. `key` may be that of the entry itself.
   template <class Report>
   ValueType del(Report&& report, const Key& key) {
      return delAt(std::forward<Report>(report), find(key));
   }
   // The same for the entry at which `at`, an iterator of this collection or `end()`, stands.
   template <class Report>
   ValueType del(Report&& report, Iterator at) {
      return delAt(std::forward<Report>(report), at);
   }

   // Removes all entries: one by one, lowest key first, for a reporter that publishes, else at
   // once. What a reporter adds meanwhile is removed as well.
   template <class Report>
   void clear(Report&& report) {
      if constexpr (isWatched<Report>) {
         while (!map_.empty()) {
            delAt(report, begin());
         }
      } else {
         // Emptied before the elements are destroyed, because a destructor may use this collection.
         const Map removed = std::exchange(map_, Map{});
      }
   }

 protected:
   template <class Report>
   ValueType delAt(Report&& report, Iterator at) {
      if (at.position() == map_.end()) {
         return ValueType{};
      }
      // Extracted instead of erased: the report refers to the key and the value in the node.
      const auto node = map_.extract(at.position());
      report(node.key(), &node.mapped());
      return std::move(node.mapped());
   }

   Map map_;
};

} // namespace Detail

// Values, or counted references to objects that others own, by key. A reference keeps its object
// alive. `ValueType` has a default value and `==`.
template <class KeyType, class ValueType>
class RbTreeMap : public Detail::Tree<KeyType, ValueType> {
   using Tree = Detail::Tree<KeyType, ValueType>;

 public:
   static constexpr bool ownsElements = !Detail::isReference<ValueType>;
   static constexpr std::string_view kivCollectionName = "Kiv::RbTreeMap";

   // Stores `value` under `key`, in place of the one before. Storing an equal value changes
   // nothing; references are equal when they refer to the same object. A null reference removes the
   // entry.
   template <class Report>
   void is(Report&& report, const KeyType& key, ValueType value) {
      if constexpr (Detail::isReference<ValueType>) {
         if (value == nullptr) {
            this->delAt(std::forward<Report>(report), this->find(key));
            return;
         }
      }
      // Keys mostly come in ascending order; with the end as a hint such an insertion takes
      // constant time. `try_emplace` leaves `value` alone when the key is there, so it can be moved
      // below.
      const std::size_t before = this->map_.size();
      const auto at = this->map_.try_emplace(this->map_.end(), key, std::move(value));
      if (this->map_.size() != before) {
         reportChange(report, at->first, static_cast<const ValueType*>(nullptr));
      } else if (!(at->second == value)) {
         const ValueType old = std::exchange(at->second, std::move(value));
         reportChange(report, key, &old);
      }
   }
};

// Entities of type `Element`, which the collection makes from their key and owns. The key is kept
// in the tree, so an element need not carry it.
template <class KeyType, class Element>
class RbTreeEntityMap : public Detail::Tree<KeyType, Pello::Ptr<Element>> {
 public:
   static constexpr bool ownsElements = true;
   static constexpr std::string_view kivCollectionName = "Kiv::RbTreeEntityMap";

   // The element under `key`, never null. It is made from the key and `arguments` when there is
   // none; otherwise it stays as it is and the arguments are ignored. Throws what its constructor
   // throws.
   template <class Report, class... Arguments>
      requires std::constructible_from<Element, const KeyType&, Arguments...>
   Pello::Ptr<Element> is(Report&& report, const KeyType& key, Arguments&&... arguments) {
      const auto found = this->map_.find(key);
      if (found != this->map_.end()) {
         return found->second;
      }
      Pello::Ptr<Element> element{new Element{key, std::forward<Arguments>(arguments)...}};
      this->map_.emplace(key, element);
      reportChange(report, key, static_cast<const Pello::Ptr<Element>*>(nullptr));
      return element;
   }
};

// An ordered set of plain values. Its nodes carry a `bool` that is always true, so that a set
// shares the code of the maps.
template <class KeyType>
class RbTreeSet : public Detail::Tree<KeyType, bool, Detail::WalkMembers<KeyType>> {
 public:
   static constexpr bool isSet = true;
   static constexpr bool ownsElements = true;
   static constexpr std::string_view kivCollectionName = "Kiv::RbTreeSet";

   // Adds `key`; adding a member changes nothing and reports nothing.
   template <class Report>
   void is(Report&& report, const KeyType& key) {
      if (this->map_.try_emplace(key, true).second) {
         reportChange(report, key, static_cast<const bool*>(nullptr));
      }
   }
};

} // namespace Kiv
