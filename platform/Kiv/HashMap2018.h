// The hash collections: `HashMap2018`, entities by a key that they carry, and `HashSet2018`, plain
// values. The order of iteration has no meaning. Relies on Boost's flat hash tables, and on
// `LargeTable` for maps with very many elements. What is ours is the interface, and that a map's
// slot keeps the whole hash, so that growing never reads a key.
//
// Both have the interface that detail/Collection.h describes. An entity declares one with
// `KIV_COLLECTION`, which passes the reporter.
#pragma once

#include "Kiv/detail/ByteSet.h"
#include "Kiv/detail/Collection.h"
#include "Kiv/detail/Iterator.h"
#include "Kiv/detail/LargeTable.h"
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

// Hashes a slot by reading the hash that it keeps. `is_avalanching` tells Boost that the hash is
// good enough to be used without another mixing step.
struct StoredHash {
   using is_avalanching = void;
   using is_transparent = void;
   template <class Slot>
   std::size_t operator()(const Slot& slot) const noexcept {
      return slot.hash;
   }
};

// Removes all elements one by one and reports each. The keys are copied first, because a reporter
// may change the collection, and because finding the first element of a table that gets emptier
// again and again would cost the square of its size. Elements that a reporter adds meanwhile are
// removed as well.
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

// Which table a map has: Boost's, which is fast while it fits into a cache, or `LargeTable`.
enum class TableKind : U8 { usual, large };

// The hash of a key, computed before (`HashMap2018::expect`).
struct KnownHash {
   U64 hash;
};

// Entities of type `Element`, which the collection makes and owns through counted references.
//  - `KeyType` has `==` and a hash (`Kiv::hashOf`).
//  - `Element` is an entity that is made from its key, with or without further arguments.
//  - `keyOf` is its accessor that returns the key: `const KeyType& (Element::*)() const`.
//    The key of an element must never change; a constant attribute is one.
//  - `seed` is the hash constant of the collection.
template <class KeyType, class Element, auto keyOf, U64 seed, TableKind kind = TableKind::usual>
class HashMap2018 {
   // What the table holds: an element with the hash of its key.
   struct Slot {
      U64 hash;
      Pello::Ptr<Element> element;
   };
   // What a look-up brings instead of an element.
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
   using Table = std::conditional_t<kind == TableKind::large, Detail::LargeTable<Slot, SameKey>,
                                    boost::unordered_flat_set<Slot, Detail::StoredHash, SameKey>>;
   // How `EntryIterator` reads a slot.
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

   // Walks the elements; valid until the collection is changed in any way.
   using Iterator = EntryIterator<typename Table::const_iterator, Read>;

   std::size_t size() const noexcept { return table_.size(); }
   bool empty() const noexcept { return table_.empty(); }
   Iterator begin() const { return Iterator{table_.begin()}; }
   Iterator end() const { return Iterator{table_.end()}; }
   // Whether there is an element under `key`.
   bool has(const Key& key) const { return table_.contains(Sought{hashOf(key, seed), key}); }

   // The element under `key`, or null.
   Pello::Ptr<Element> get(const Key& key) const {
      const auto found = table_.find(Sought{hashOf(key, seed), key});
      return found == table_.end() ? nullptr : found->element;
   }

   // The element under `key`, never null. It is made from the key and `arguments` when there is
   // none; otherwise it stays as it is and the arguments are ignored. Throws what its constructor
   // throws.
   template <class Report, class... Arguments>
      requires std::constructible_from<Element, const Key&, Arguments...>
   Pello::Ptr<Element> is(Report&& report, const Key& key, Arguments&&... arguments) {
      return is(report, key, KnownHash{hashOf(key, seed)}, std::forward<Arguments>(arguments)...);
   }
   // The same for a key whose hash is known: `known` is what `expect` has returned for it.
   template <class Report, class... Arguments>
      requires std::constructible_from<Element, const Key&, Arguments...>
   Pello::Ptr<Element> is(Report&& report, const Key& key, KnownHash known,
                          Arguments&&... arguments) {
      const U64 hash = known.hash;
      const auto found = table_.find(Sought{hash, key});
      if (found != table_.end()) {
         return found->element;
      }
      Pello::Ptr<Element> element{new Element{key, std::forward<Arguments>(arguments)...}};
      table_.insert(Slot{hash, element});
      report((element.get()->*keyOf)(), static_cast<const Pello::Ptr<Element>*>(nullptr));
      return element;
   }

   // Stores `element`, which is not null and was made elsewhere, under the key that it carries. It
   // replaces the element that was there; storing the same object again changes nothing.
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
         // The table's slots are constant, so the new element gets a slot of its own.
         table_.erase(found);
         table_.insert(Slot{hash, element});
         report(key, &old);
      }
   }

   // Removes the element under `key` and returns it; null when there is none. It exists on while
   // others refer to it. `key` may be that of the element itself.
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

   // Removes all elements: one by one for a reporter that publishes, else at once.
   template <class Report>
   void clear(Report&& report) {
      if constexpr (isWatched<Report>) {
         Detail::clearByKey(*this, report);
      } else {
         // Emptied before the elements are destroyed, because a destructor may use this collection.
         const Table removed = std::exchange(table_, Table{});
      }
   }

   // Says that an operation with `key` will come soon: a large table then asks for the memory that
   // the operation will touch. Returns the hash of `key` for `is`. Nothing is changed.
   KnownHash expect(const Key& key) const {
      const U64 hash = hashOf(key, seed);
      if constexpr (kind == TableKind::large) {
         table_.prefetch(hash);
      }
      return {hash};
   }

   // Makes room for `count` elements in all, so that adding them moves nothing. Never gives room
   // back.
   void reserve(std::size_t count) {
      if (count > table_.max_load()) {
         table_.reserve(count);
      }
   }

 private:
   Table table_;
};

namespace Detail {

// Boost's hash function for values: `Kiv::hashOf`, which mixes well enough to be used as it is.
template <class T>
struct SetHash {
   using is_avalanching = void;
   U64 seed;
   std::size_t operator()(const T& value) const { return hashOf(value, seed); }
};

// A set of values of any type that has `==` and a hash.
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
   void insertAll(const FlatSet& other) { table_.insert(other.begin(), other.end()); }
   void clear() { table_.clear(); }
   bool erase(const T& value) { return table_.erase(value) != 0; }

 private:
   Table table_;
};

// A set of one-byte enumerators: no hashing, and no allocation while all numbers are below 64.
// Members come in ascending order. Any of them may be removed while the set is walked.
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
   void insertAll(const WordSet& other) { set_.insertAll(other.set_); }
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

// The seed with which a collection of hash constant `constant` hashes.
inline U64 collectionSeed(U64 constant, bool perProcess) {
   return perProcess ? processHashSeed() ^ constant : constant;
}

} // namespace Detail

// A set of plain values of type `T`, which has `==` and a hash (`Kiv::hashOf`). `seed` is the hash
// constant of the collection; with `perProcess` it is mixed with `processHashSeed`, for values that
// come from outside. A set of one-byte enumerators uses neither: its members are bits. It holds
// every number of a byte, also those without a name.
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

   // Walks the members; valid until the set is changed in any way.
   using Iterator = MemberIterator<T, typename Table::Iterator>;

   std::size_t size() const noexcept { return table_.size(); }
   bool empty() const noexcept { return size() == 0; }
   Iterator begin() const { return Iterator{table_.begin()}; }
   Iterator end() const { return Iterator{table_.end()}; }
   bool has(const T& value) const { return table_.has(value); }
   // The same as `has`, under the name that all collections share.
   bool get(const T& value) const { return has(value); }

   // Adds `value`; adding a member changes nothing and reports nothing.
   template <class Report>
   void is(Report&& report, const T& value) {
      if (table_.insert(value)) {
         reportChange(report, value, static_cast<const T*>(nullptr));
      }
   }

   // Adds all members of `other`, each as `is` does. `other` may be this set.
   template <class Report>
   void isAll(Report&& report, const HashSet2018& other) {
      if constexpr (!isWatched<Report>) {
         table_.insertAll(other.table_);
      } else if (&other != this) { // adds nothing, and the set must not change while it is walked
         for (auto at = other.begin(); at != other.end(); ++at) {
            is(report, at.key());
         }
      }
   }

   // Removes `value` and reports it as the old element; removing a value that is no member changes
   // nothing and reports nothing.
   template <class Report>
   void del(Report&& report, const T& value) {
      const T removed = value; // because `value` may be a reference to the member itself
      if (table_.erase(removed)) {
         report(removed, &removed);
      }
   }

   // Removes all members: one by one for a reporter that publishes, else at once.
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
