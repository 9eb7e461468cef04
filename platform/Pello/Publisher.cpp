#include "Pello/Publisher.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <utility>
#include <vector>

namespace Pello {

struct Publisher::Entry : Counted {
   explicit Entry(Ptr<Listener> shown) noexcept : listener{std::move(shown)} {}

   Ptr<Listener> listener;
   bool active = true;
   U32 running = 0; // calls of the listener under way, one inside the other

   // The callback may hold the very object that publishes, so it must not wait for the next
   // notification to go; while it runs it has to stay.
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

   // Entries are removed only while nobody walks them.
   void sweep() {
      if (deliveriesUnderWay == 0) {
         std::erase_if(entries, [](const auto& entry) { return !entry->active; });
      }
   }
};

Publisher::~Publisher() = default;

void Publisher::Subscription::end() noexcept {
   if (entry_ != nullptr) {
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
   // The list is held here: a subscriber may destroy the publisher together with its object.
   const Ptr<List> list{static_cast<List*>(list_.get())};
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
