// `EntryIterator` and `MemberIterator`: how collections by key and sets are walked. Relies on the
// iterator of the container that a collection wraps.
//
// An iterator of a collection by key is its own entry: `*at` and `at` have `key()` and `value()`,
// and `*at` can be taken apart: `for (auto& [key, value] : collection)`. For collections of counted
// references `at->` is the object. An iterator of a set gives the member: `for (auto one : set)`.
#pragma once

#include "Pello/Ptr.h"

#include <cstddef>
#include <tuple>
#include <type_traits>

namespace Kiv {

namespace Detail {

template <class T>
inline constexpr bool isReference = false;
template <class T>
inline constexpr bool isReference<Pello::Ptr<T>> = true;

} // namespace Detail

// `At` walks the container. `Read` has the types `Key` and `Value`, and `key` and `value`, which
// take what `At` shows and return a reference into it.
template <class At, class Read>
class EntryIterator {
 public:
   using Key = typename Read::Key;
   using Value = typename Read::Value;
   using difference_type = std::ptrdiff_t;
   using value_type = EntryIterator;

   explicit EntryIterator(At at) : at_{at} {}

   // Both are valid until the entry goes.
   const Key& key() const { return Read::key(*at_); }
   const Value& value() const { return Read::value(*at_); }
   auto operator->() const
      requires Detail::isReference<Value>
   {
      return value().get();
   }
   // Valid as long as this iterator stands here.
   const EntryIterator& operator*() const { return *this; }
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

   // Where it stands in the container, for the collection.
   const At& position() const { return at_; }

 private:
   At at_;
};

// `At` shows the member itself, or a node whose key it is (`first`).
template <class T, class At>
class MemberIterator {
 public:
   using difference_type = std::ptrdiff_t;
   using value_type = T;

   explicit MemberIterator(At at) : at_{at} {}

   // A reference into the set where its members have addresses, else a value.
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

   // Where it stands in the container, for the collection.
   const At& position() const { return at_; }

 private:
   At at_;
};

} // namespace Kiv

// What lets `auto& [key, value]` take an entry apart.
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
