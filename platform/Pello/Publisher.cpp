#include "Pello/Publisher.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <utility>
#include <vector>

namespace Pello {

// Counted, because the list, the handle and a notification under way hold it independently.
struct Publisher::Entry : Counted {
   explicit Entry(Ptr<Listener> shown) noexcept : listener{std::move(shown)} {}

   Ptr<Listener> listener;
   bool active = true;
   U32 running = 0; // calls of the listener under way, one inside the other

   // Drops the callback as soon as it is neither wanted nor running. It may hold the last reference
   // to the object that publishes; waiting for the next notification to sweep the entry would keep
   // that object alive for ever. The entry is changed before the callback is destroyed, because its
   // destructor may come back here.
   void releaseIfEnded() noexcept {
      if (!active && running == 0) {
         const Ptr<Listener> ended = std::exchange(listener, nullptr);
      }
   }
};

struct Publisher::List : Counted {
   std::vector<Ptr<Entry>> entries;
   U32 deliveriesUnderWay = 0;
   U64 containedExceptions = 0;

   // Removes ended entries. Not during a notification, which walks the entries by index.
   void sweep() {
      if (deliveriesUnderWay == 0) {
         std::erase_if(entries, [](const auto& entry) { return !entry->active; });
      }
   }
};

Publisher::~Publisher() = default;

void Publisher::Subscription::end() noexcept {
   if (entry_ != nullptr) {
      // Destroying the callback may destroy this handle; only `held` is used from here on.
      const Ptr<Counted> held = std::move(entry_);
      auto& entry = static_cast<Entry&>(*held);
      entry.active = false;
      entry.releaseIfEnded();
   }
}

Publisher::Subscription Publisher::add(Ptr<Listener> listener) {
   if (list_ == nullptr) {
      list_ = Ptr<Counted>{new List};
   }
   auto& list = static_cast<List&>(*list_);
   list.sweep();
   const Ptr<Entry> entry{new Entry{std::move(listener)}};
   list.entries.push_back(entry);
   return Subscription{entry};
}

U64 Publisher::containedExceptions() const noexcept {
   return list_ == nullptr ? 0 : static_cast<const List&>(*list_).containedExceptions;
}

void Publisher::deliver(const Change& change) {
   // The list is held here, and `this` is not used again: a subscriber may destroy the publisher
   // together with its object.
   const Ptr<List> list{static_cast<List*>(list_.get())};
   // Subscribers added from now on do not hear of this change. An index instead of an iterator,
   // because adding them may move the entries.
   const std::size_t known = list->entries.size();
   ++list->deliveriesUnderWay;
   for (std::size_t i = 0; i < known; ++i) {
      const Ptr<Entry> entry = list->entries[i];
      if (!entry->active) {
         continue;
      }
      ++entry->running;
      try {
         entry->listener->call(change);
      } catch (const std::exception& error) {
         ++list->containedExceptions;
         std::fprintf(stderr, "subscriber of attribute %u failed: %s\n",
                      static_cast<unsigned>(change.attribute), error.what());
      } catch (...) {
         ++list->containedExceptions;
         std::fprintf(stderr, "subscriber of attribute %u failed\n",
                      static_cast<unsigned>(change.attribute));
      }
      --entry->running;
      entry->releaseIfEnded();
   }
   --list->deliveriesUnderWay;
   list->sweep();
}

} // namespace Pello
