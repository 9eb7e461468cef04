// The hash collections: `HashMap2018`, entities by a key that they carry, and `HashSet2018`, plain
// values. Iteration order carries no meaning. Relies on Boost's flat hash tables; what is ours is
// the interface and that a table remembers the whole hash, so that growing never looks at a key.
#pragma once

#include "Kiv/detail/ByteSet.h"
#include "Kiv/detail/Collection.h"
#include "Kiv/detail/Iterator.h"
#include "Kiv/detail/ValueOps.h"
#include "Pello/Ptr.h"

#include <boost/unordered/unordered_flat_set.hpp>

#include <concepts>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace Kiv {

namespace Detail {

// The hash is in the slot already; using it as it is keeps look-ups cheap.
struct StoredHash {
   using is_avalanching = void;
   using is_transparent = void;
   template <class Slot>
   std::size_t operator()(const Slot& slot) const noexcept {
      return slot.hash;
   }
};

// Removes what a hash collection holds, each by its key. The keys are collected first: finding the
// first element of an emptying table again and again would cost the square of its size. What a
// reporter adds meanwhile goes too.
template <class Collection, class Report>
void clearByKey(Collection& collection, Report& report) {
   while (!collection.empty()) {
      std::vector<typename Collection::Key> keys;
      keys.reserve(collection.size());
      for (auto at = collection.begin(); at != collection.end(); ++at) {
         keys.push_back(at.key());
      }
      for (const auto& key : keys) {
         collection.del(report, key);
      }
   }
}

} // namespace Detail

// Entities of type `Element`, instantiated by the collection and keyed by what their accessor
// `Element::key` returns, which must never change. `seed` is the collection's hash constant.
template <class KeyType, class Element, auto keyOf, U64 seed>
class HashMap2018 {
   struct Slot {
      U64 hash;
      Pello::Ptr<Element> element;
   };
   struct Sought {
      U64 hash;
      const KeyType& key;
   };
   struct SameKey {
      using is_transparent = void;
      static const KeyType& key(const Slot& slot) { return (slot.element.get()->*keyOf)(); }
      static const KeyType& key(const Sought& sought) { return sought.key; }
      template <class A, class B>
      bool operator()(const A& a, const B& b) const {
         return a.hash == b.hash && key(a) == key(b);
      }
   };
   using Table = boost::unordered_flat_set<Slot, Detail::StoredHash, SameKey>;
   // What an iterator shows of a slot.
   struct Read {
      using Key = KeyType;
      using Value = Pello::Ptr<Element>;
      static const Key& key(const Slot& slot) { return SameKey::key(slot); }
      static const Value& value(const Slot& slot) { return slot.element; }
   };

 public:
   using Key = KeyType;
   using Value = Element;
   static constexpr bool isSet = false;
   static constexpr bool isOrdered = false;
   static constexpr bool ownsElements = true;
   static constexpr std::string_view kivCollectionName = "Kiv::HashMap2018";
   static constexpr auto keyAccessor = keyOf; // the key of an element
   static constexpr U64 hashConstant = seed;

   // Walks the elements; valid until the collection changes.
   using Iterator = EntryIterator<typename Table::const_iterator, Read>;

   std::size_t size() const noexcept { return table_.size(); }
   bool empty() const noexcept { return table_.empty(); }
   Iterator begin() const { return Iterator{table_.begin()}; }
   Iterator end() const { return Iterator{table_.end()}; }
   bool has(const Key& key) const { return table_.contains(Sought{hashOf(key, seed), key}); }

   // The element under `key`, or null.
   Pello::Ptr<Element> get(const Key& key) const {
      const auto found = table_.find(Sought{hashOf(key, seed), key});
      return found == table_.end() ? nullptr : found->element;
   }

   // The element under `key`; made from the key and `arguments` when there is none. Never replaces.
   template <class Report, class... Arguments>
      requires std::constructible_from<Element, const Key&, Arguments...>
   Pello::Ptr<Element> is(Report&& report, const Key& key, Arguments&&... arguments) {
      const U64 hash = hashOf(key, seed);
      const auto found = table_.find(Sought{hash, key});
      if (found != table_.end()) {
         return found->element;
      }
      Pello::Ptr<Element> element{new Element{key, std::forward<Arguments>(arguments)...}};
      table_.insert(Slot{hash, element});
      report((element.get()->*keyOf)(), static_cast<const Pello::Ptr<Element>*>(nullptr));
      return element;
   }

   // Stores an element that was made elsewhere under the key that it carries, in place of the one
   // that was there.
   template <class Report>
   void put(Report&& report, const Pello::Ptr<Element>& element) {
      const Key& key = (element.get()->*keyOf)();
      const U64 hash = hashOf(key, seed);
      const auto found = table_.find(Sought{hash, key});
      if (found == table_.end()) {
         table_.insert(Slot{hash, element});
         report(key, static_cast<const Pello::Ptr<Element>*>(nullptr));
      } else if (found->element != element) {
         const Pello::Ptr<Element> old = found->element;
         table_.erase(found);
         table_.insert(Slot{hash, element});
         report(key, &old);
      }
   }

   // Removes the element under `key` and hands it to the caller; null when there is none.
   template <class Report>
   Pello::Ptr<Element> del(Report&& report, const Key& key) {
      const auto found = table_.find(Sought{hashOf(key, seed), key});
      if (found == table_.end()) {
         return nullptr;
      }
      Pello::Ptr<Element> element = found->element;
      table_.erase(found);
      report((element.get()->*keyOf)(), &element);
      return element;
   }

   // Removes the elements one by one; all at once when nobody watches.
   template <class Report>
   void clear(Report&& report) {
      if constexpr (isWatched<Report>) {
         Detail::clearByKey(*this, report);
      } else {
         // An element that reaches this collection on its way out finds it empty.
         const Table removed = std::exchange(table_, Table{});
      }
   }

   // Makes room for `count` elements in all; never gives room back.
   void reserve(std::size_t count) {
      if (count > table_.max_load()) {
         table_.reserve(count);
      }
   }

 private:
   Table table_;
};

namespace Detail {

// Values of any hashable type.
template <class T>
struct SetHash {
   using is_avalanching = void;
   U64 seed;
   std::size_t operator()(const T& value) const { return hashOf(value, seed); }
};

template <class T>
class FlatSet {
   using Table = boost::unordered_flat_set<T, SetHash<T>>;

 public:
   using Iterator = typename Table::const_iterator;
   explicit FlatSet(U64 seed) : table_{0, SetHash<T>{seed}} {}
   std::size_t size() const noexcept { return table_.size(); }
   Iterator begin() const { return table_.begin(); }
   Iterator end() const { return table_.end(); }
   bool has(const T& value) const { return table_.contains(value); }
   bool insert(const T& value) { return table_.insert(value).second; }
   void clear() { table_.clear(); }
   bool erase(const T& value) { return table_.erase(value) != 0; }

 private:
   Table table_;
};

// One-byte enumerations: no hashing, and no allocation while all numbers are below 63. Members come
// in ascending order; any of them may be removed while the set is walked.
template <class E>
class WordSet {
 public:
   class Iterator {
    public:
      explicit Iterator(const ByteSet& set, U32 at) : set_{&set}, at_{at} {}
      E operator*() const { return static_cast<E>(at_); }
      Iterator& operator++() {
         at_ = set_->next(at_ + 1);
         return *this;
      }
      friend bool operator==(const Iterator& a, const Iterator& b) { return a.at_ == b.at_; }

    private:
      const ByteSet* set_;
      U32 at_;
   };
   explicit WordSet(U64 /*seed*/) {}
   std::size_t size() const noexcept { return set_.size(); }
   Iterator begin() const { return Iterator{set_, set_.next(0)}; }
   Iterator end() const { return Iterator{set_, ByteSet::end}; }
   bool has(E value) const { return set_.has(static_cast<U8>(value)); }
   bool insert(E value) { return set_.insert(static_cast<U8>(value)); }
   void clear() { set_.clear(); }
   bool erase(E value) { return set_.erase(static_cast<U8>(value)); }

 private:
   ByteSet set_;
};

template <class T>
struct SetOf {
   using Type = FlatSet<T>;
};
template <class T>
   requires(std::is_enum_v<T> && sizeof(T) == 1)
struct SetOf<T> {
   using Type = WordSet<T>;
};

inline U64 collectionSeed(U64 constant, bool perProcess) {
   return perProcess ? processHashSeed() ^ constant : constant;
}

} // namespace Detail

// A set of plain values. `seed` is the collection's hash constant; with `perProcess` it is mixed
// with the process's own seed. A set of enumerators needs neither: it is one word, and holds every
// number of a byte, also those without a name.
template <class T, U64 seed, bool perProcess = false>
class HashSet2018 {
   using Table = typename Detail::SetOf<T>::Type;

 public:
   using Key = T;
   static constexpr bool isSet = true;
   static constexpr bool isOrdered = false;
   static constexpr bool ownsElements = true;
   static constexpr std::string_view kivCollectionName = "Kiv::HashSet2018";
   static constexpr U64 hashConstant = seed;
   static constexpr bool hashesPerProcess = perProcess;

   // Walks the members; valid until the set changes.
   using Iterator = MemberIterator<T, typename Table::Iterator>;

   std::size_t size() const noexcept { return table_.size(); }
   bool empty() const noexcept { return size() == 0; }
   Iterator begin() const { return Iterator{table_.begin()}; }
   Iterator end() const { return Iterator{table_.end()}; }
   bool has(const T& value) const { return table_.has(value); }
   // Membership.
   bool get(const T& value) const { return has(value); }

   // Adds `value`; adding a member changes nothing.
   template <class Report>
   void is(Report&& report, const T& value) {
      if (table_.insert(value)) {
         reportChange(report, value, static_cast<const T*>(nullptr));
      }
   }

   // Removes `value`; removing a stranger changes nothing.
   template <class Report>
   void del(Report&& report, const T& value) {
      const T removed = value; // `value` may live in the set
      if (table_.erase(removed)) {
         report(removed, &removed);
      }
   }

   // Removes the members one by one; all at once when nobody watches.
   template <class Report>
   void clear(Report&& report) {
      if constexpr (isWatched<Report>) {
         Detail::clearByKey(*this, report);
      } else {
         table_.clear();
      }
   }

 private:
   Table table_{Detail::collectionSeed(seed, perProcess)};
};

} // namespace Kiv
