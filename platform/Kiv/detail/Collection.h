// What all collections share: how a change of a collection is reported to whoever publishes it.
//
// Every collection offers
//   Key, isSet                        the key's type; whether there is nothing but keys
//   isOrdered                         whether it is walked in ascending key order
//   ownsElements                      whether its elements are its own, not objects of others
//   kivCollectionName                 its name in type texts
//   size(), empty(), has(key),        reading; iterators have key(), and value() or ->
//   begin(), end()
//   get(key)                          the element: null, empty or false when absent
//   is(report, …), del(report, key),  changing
//   clear(report)
// and calls `report(key, old)` after each effective change, with the old element (null when there
// was none), while the old element is still held. A reporter may change the collection itself; to
// end it, together with its owner, is allowed except while it is being cleared.
#pragma once

#include <type_traits>

namespace Kiv {

// For owners that nobody watches.
struct NoReport {
   template <class Key, class Old>
   void operator()(const Key&, const Old*) const noexcept {}
};

template <class Report>
inline constexpr bool isWatched = !std::is_same_v<std::remove_cvref_t<Report>, NoReport>;

// Reports with a copy of the key: a reporter may remove the very entry that `key` refers to, and
// those that are called after it still read the key.
template <class Report, class Key, class Old>
void reportChange(Report& report, const Key& key, const Old* old) {
   if constexpr (isWatched<Report>) {
      const Key held = key;
      report(held, old);
   }
}

} // namespace Kiv
