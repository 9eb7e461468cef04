#include "Pello/Publisher.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <utility>
#include <vector>

namespace Pello {

struct Publisher::Subscription::Entry {
   Callback callback;
   bool active = true;
   U32 running = 0; // calls of the callback under way, one inside the other

   // The callback may hold the very object that publishes, so it must not wait for the next
   // notification to go; while it runs it has to stay.
   void releaseIfEnded() noexcept {
      if (!active && running == 0) {
         const Callback ended = std::exchange(callback, nullptr);
      }
   }
};

struct Publisher::List {
   std::vector<std::shared_ptr<Subscription::Entry>> entries;
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
      const std::shared_ptr<Entry> entry = std::move(entry_);
      entry->active = false;
      entry->releaseIfEnded();
   }
}

Publisher::Subscription Publisher::subscribe(Callback callback) {
   if (list_ == nullptr) {
      list_ = std::make_shared<List>();
   }
   list_->sweep();
   auto entry = std::make_shared<Subscription::Entry>(Subscription::Entry{std::move(callback)});
   list_->entries.push_back(entry);
   return Subscription{std::move(entry)};
}

U64 Publisher::containedExceptions() const noexcept {
   return list_ == nullptr ? 0 : list_->containedExceptions;
}

void Publisher::deliver(const Change& change) {
   // The list is held here: a subscriber may destroy the publisher together with its object.
   const std::shared_ptr<List> list = list_;
   const std::size_t known = list->entries.size();
   ++list->deliveriesUnderWay;
   for (std::size_t i = 0; i < known; ++i) {
      const std::shared_ptr<Subscription::Entry> entry = list->entries[i];
      if (!entry->active) {
         continue;
      }
      ++entry->running;
      try {
         entry->callback(change);
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
