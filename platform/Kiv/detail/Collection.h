// What all collections share: their interface, and how they report changes. Relies on nothing.
//
// Every collection offers
//   Key, isSet                        the key's type; whether there is nothing but keys
//   Value                             the type of the elements; not in sets
//   isOrdered                         whether it is walked in ascending key order
//   ownsElements                      whether its elements are its own, not objects of others
//   kivCollectionName                 its name in type texts
//   size(), empty(), has(key),        reading; iterators have key(), and value() or ->
//   begin(), end()
//   get(key)                          the element: null, empty or false when absent
//   is(report, …), del(report, key),  changing
//   clear(report)
//
// A changing operation takes a reporter and calls `report(key, old)` once after each change that
// had an effect. `old` points to the element before the change: a value, a counted reference, the
// member of a hash set, or the `true` of an ordered set. It is null for an addition. Key and old
// element are valid during the call. A reporter may change the collection. It may destroy the
// collection with its owner, except while the collection is being cleared.
#pragma once

#include <type_traits>

namespace Kiv {

// The reporter of owners that publish nothing. Collections recognise the type and skip the work
// that only a report needs.
struct NoReport {
   template <class Key, class Old>
   void operator()(const Key&, const Old*) const noexcept {}
};

// Whether a `Report` reports anything.
template <class Report>
inline constexpr bool isWatched = !std::is_same_v<std::remove_cvref_t<Report>, NoReport>;

// Reports with a copy of `key`, which may refer into the collection: the first subscriber may
// remove that entry, and later ones still read the key.
template <class Report, class Key, class Old>
void reportChange(Report& report, const Key& key, const Old* old) {
   if constexpr (isWatched<Report>) {
      const Key held = key;
      report(held, old);
   }
}

} // namespace Kiv
