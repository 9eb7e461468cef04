// `EntryIterator` and `MemberIterator`: the iterators of collections by key and of sets. Relies on
// the iterator of the container that a collection wraps.
//
// An iterator of a collection by key is its own entry: `*at` returns the iterator, which has
// `key()` and `value()` and can be taken apart: `for (auto& [key, value] : collection)`. For
// collections of counted references, `at->` reaches the object. An iterator of a set gives the
// member: `for (auto one : set)`.
//
// How long an iterator is valid is said at the collection.
#pragma once

#include "Pello/Ptr.h"

#include <cstddef>
#include <tuple>
#include <type_traits>

namespace Kiv {

namespace Detail {

// Whether `T` is a counted reference.
template <class T>
inline constexpr bool isReference = false;
template <class T>
inline constexpr bool isReference<Pello::Ptr<T>> = true;

} // namespace Detail

// `At` is an iterator of the container, with `*`, `++` and `==`. `Read` has the types `Key` and
// `Value`, and static functions `key` and `value`, which take what `*at` gives and return
// references into it.
template <class At, class Read>
class EntryIterator {
 public:
   using Key = typename Read::Key;
   using Value = typename Read::Value;
   using difference_type = std::ptrdiff_t;
   using value_type = EntryIterator;

   explicit EntryIterator(At at) : at_{at} {}

   // Both refer into the collection, and are valid until the entry is removed.
   const Key& key() const { return Read::key(*at_); }
   const Value& value() const { return Read::value(*at_); }
   // The object; borrowed from the collection.
   auto operator->() const
      requires Detail::isReference<Value>
   {
      return value().get();
   }
   // The entry, which is this iterator: valid until it is moved on or destroyed.
   const EntryIterator& operator*() const { return *this; }
   // For structured bindings: 0 is the key, 1 the value.
   template <std::size_t index>
   const auto& get() const {
      if constexpr (index == 0) {
         return key();
      } else {
         return value();
      }
   }

   EntryIterator& operator++() {
      ++at_;
      return *this;
   }
   EntryIterator operator++(int) {
      EntryIterator before = *this;
      ++at_;
      return before;
   }
   friend bool operator==(const EntryIterator& a, const EntryIterator& b) { return a.at_ == b.at_; }

   // The container's iterator, for the collection that removes the entry.
   const At& position() const { return at_; }

 private:
   At at_;
};

// `At` is an iterator of the container, likewise. It gives the member of type `T` itself, or a node
// whose `first` is the member.
template <class T, class At>
class MemberIterator {
 public:
   using difference_type = std::ptrdiff_t;
   using value_type = T;

   explicit MemberIterator(At at) : at_{at} {}

   // The member: a reference into the set, or a value where the container keeps none, as the bits
   // of an enumeration.
   decltype(auto) operator*() const {
      if constexpr (std::is_same_v<std::remove_cvref_t<decltype(*at_)>, T>) {
         return *at_;
      } else {
         return static_cast<const T&>((*at_).first);
      }
   }
   decltype(auto) key() const { return **this; }

   MemberIterator& operator++() {
      ++at_;
      return *this;
   }
   MemberIterator operator++(int) {
      MemberIterator before = *this;
      ++at_;
      return before;
   }
   friend bool operator==(const MemberIterator& a, const MemberIterator& b) {
      return a.at_ == b.at_;
   }

   // The container's iterator, for the collection that removes the entry.
   const At& position() const { return at_; }

 private:
   At at_;
};

} // namespace Kiv

// The tuple protocol of structured bindings, for `auto& [key, value]`.
template <class At, class Read>
struct std::tuple_size<Kiv::EntryIterator<At, Read>> : std::integral_constant<std::size_t, 2> {};
template <class At, class Read>
struct std::tuple_element<0, Kiv::EntryIterator<At, Read>> {
   using type = const typename Read::Key;
};
template <class At, class Read>
struct std::tuple_element<1, Kiv::EntryIterator<At, Read>> {
   using type = const typename Read::Value;
};
