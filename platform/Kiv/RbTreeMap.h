// The ordered collections: `RbTreeMap` (values or references by key), `RbTreeEntityMap` (entities
// made by the collection) and `RbTreeSet`, all iterated in ascending key order. Balanced binary
// search trees: `std::map` with its nodes in the slab.
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

// Serves the nodes of a standard container from the slab.
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

// What an iterator shows of a node.
template <class KeyType, class ValueType>
struct ReadNode {
   using Key = KeyType;
   using Value = ValueType;
   static const Key& key(const std::pair<const Key, Value>& node) { return node.first; }
   static const Value& value(const std::pair<const Key, Value>& node) { return node.second; }
};

template <class KeyType, class ValueType>
struct WalkEntries {
   template <class At>
   using Iterator = EntryIterator<At, ReadNode<KeyType, ValueType>>;
};

template <class KeyType>
struct WalkMembers {
   template <class At>
   using Iterator = MemberIterator<KeyType, At>;
};

// What all ordered collections read alike. `Walk` says how they are walked.
template <class KeyType, class ValueType, class Walk = WalkEntries<KeyType, ValueType>>
class Tree {
 protected:
   using Map = SlabMap<KeyType, ValueType>;

 public:
   using Key = KeyType;
   using Value = ValueType;
   static constexpr bool isSet = false;
   static constexpr bool isOrdered = true;
   // One entry, its key first.
   using Node = typename Map::value_type;

   // Walks the entries in ascending order; stays valid while its own entry stays.
   using Iterator = typename Walk::template Iterator<typename Map::const_iterator>;

   std::size_t size() const noexcept { return map_.size(); }
   bool empty() const noexcept { return map_.empty(); }
   Iterator begin() const { return Iterator{map_.begin()}; }
   Iterator end() const { return Iterator{map_.end()}; }
   Iterator find(const Key& key) const { return Iterator{map_.find(key)}; }
   bool has(const Key& key) const { return map_.contains(key); }
   // The value under `key`; null or the empty value when there is none.
   ValueType get(const Key& key) const {
      const auto found = map_.find(key);
      return found == map_.end() ? ValueType{} : found->second;
   }

   // Removes the entry and returns its value; null or the empty value when there is none.
   template <class Report>
   ValueType del(Report&& report, const Key& key) {
      return delAt(std::forward<Report>(report), find(key));
   }
   template <class Report>
   ValueType del(Report&& report, Iterator at) {
      return delAt(std::forward<Report>(report), at);
   }

   // Removes the entries one by one, lowest key first; all at once when nobody watches.
   template <class Report>
   void clear(Report&& report) {
      if constexpr (isWatched<Report>) {
         while (!map_.empty()) {
            delAt(report, begin());
         }
      } else {
         // An element that reaches this collection on its way out finds it empty.
         const Map removed = std::exchange(map_, Map{});
      }
   }

 protected:
   template <class Report>
   ValueType delAt(Report&& report, Iterator at) {
      if (at.position() == map_.end()) {
         return ValueType{};
      }
      // The node lives until the report is done: it holds the key.
      const auto node = map_.extract(at.position());
      report(node.key(), &node.mapped());
      return std::move(node.mapped());
   }

   Map map_;
};

} // namespace Detail

// Values, or counted references to objects owned elsewhere, by key.
template <class KeyType, class ValueType>
class RbTreeMap : public Detail::Tree<KeyType, ValueType> {
   using Tree = Detail::Tree<KeyType, ValueType>;

 public:
   static constexpr bool ownsElements = !Detail::isReference<ValueType>;
   static constexpr std::string_view kivCollectionName = "Kiv::RbTreeMap";

   // Stores `value` under `key`. An equal value changes nothing (for references: the very object),
   // and a null reference removes the entry.
   template <class Report>
   void is(Report&& report, const KeyType& key, ValueType value) {
      if constexpr (Detail::isReference<ValueType>) {
         if (value == nullptr) {
            this->delAt(std::forward<Report>(report), this->find(key));
            return;
         }
      }
      // Keys mostly come in ascending order, for which the hint makes the insertion constant.
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

// Entities made by the collection from their key.
template <class KeyType, class Element>
class RbTreeEntityMap : public Detail::Tree<KeyType, Pello::Ptr<Element>> {
 public:
   static constexpr bool ownsElements = true;
   static constexpr std::string_view kivCollectionName = "Kiv::RbTreeEntityMap";

   // The element under `key`; made from the key and `arguments` when there is none. Never replaces.
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

// An ordered set of plain values.
template <class KeyType>
class RbTreeSet : public Detail::Tree<KeyType, bool, Detail::WalkMembers<KeyType>> {
 public:
   static constexpr bool isSet = true;
   static constexpr bool ownsElements = true;
   static constexpr std::string_view kivCollectionName = "Kiv::RbTreeSet";

   // Adds `key`; adding a member changes nothing.
   template <class Report>
   void is(Report&& report, const KeyType& key) {
      if (this->map_.try_emplace(key, true).second) {
         reportChange(report, key, static_cast<const bool*>(nullptr));
      }
   }
};

} // namespace Kiv
