// `Publisher`: tells subscribers that an attribute of an object has changed. Relies on counted
// references.
//
// The rule for what happens during a notification:
//  - delivery is synchronous, in the order of subscription;
//  - a subscriber may set attributes: that change is delivered at once, inside the one under way,
//    to all subscribers, so a later subscriber may see the inner change first;
//  - a subscriber added during a notification hears of changes that begin after it was added;
//  - a subscription that ends is not called again, not even by the notification under way;
//  - an exception of a subscriber is contained: it is counted and reported to standard error, and
//    the remaining subscribers are called.
#pragma once

#include "Pello/Ptr.h"
#include "Pello/Types.h"

#include <concepts>
#include <typeinfo>
#include <utility>

namespace Pello {

// A typed look at a value that somebody else owns; valid during the notification only.
class ValueView {
 public:
   constexpr ValueView() noexcept = default;
   template <class T>
   explicit ValueView(const T& value) noexcept : type_{&typeid(T)}, data_{&value} {}

   // The value, or null when it is of another type or there is none.
   template <class T>
   const T* as() const noexcept {
      return type_ != nullptr && *type_ == typeid(T) ? static_cast<const T*>(data_) : nullptr;
   }
   bool empty() const noexcept { return type_ == nullptr; }

 private:
   const std::type_info* type_ = nullptr;
   const void* data_ = nullptr;
};

// One effective change.
struct Change {
   U16 attribute;      // the attribute's identifier
   ValueView key;      // for a collection: the key of the element; else empty
   ValueView oldValue; // the value or element before the change; empty when there was none
};

class Publisher {
 public:
   // Ends its subscription when it goes. May outlive the publisher.
   class Subscription {
    public:
      Subscription() noexcept = default;
      Subscription(Subscription&& other) noexcept = default;
      // Ends the subscription held so far, and takes over the other's.
      Subscription& operator=(Subscription&& other) noexcept {
         Ptr<Counted> taken = std::move(other.entry_);
         end();
         entry_ = std::move(taken);
         return *this;
      }
      ~Subscription() { end(); }

      // Ends it now; the callback is not called again. Ending twice is allowed. The callback and
      // what it holds go now, or as soon as it returns when it is running.
      void end() noexcept;

    private:
      friend class Publisher;
      explicit Subscription(Ptr<Counted> entry) noexcept : entry_{std::move(entry)} {}
      Ptr<Counted> entry_; // null, or an `Entry`
   };

   Publisher() noexcept = default;
   // Subscribers belong to one object, so a publisher is neither copied nor moved.
   Publisher(const Publisher&) = delete;
   Publisher& operator=(const Publisher&) = delete;
   ~Publisher();

   // Calls `callback(change)` at every change until the returned subscription ends. The callback is
   // kept until then.
   template <std::invocable<const Change&> Callback>
   [[nodiscard]] Subscription subscribe(Callback callback) {
      return add(Ptr<Listener>{new ListenerOf<Callback>{std::move(callback)}});
   }

   // Tells every subscriber. Costs one test when there are none.
   void publish(const Change& change) {
      if (list_ != nullptr) {
         deliver(change);
      }
   }

   // How many exceptions of subscribers have been contained so far.
   U64 containedExceptions() const noexcept;

 private:
   // A callback without its type.
   class Listener : public Counted {
    public:
      virtual void call(const Change& change) = 0;
   };
   template <class Callback>
   class ListenerOf final : public Listener {
    public:
      explicit ListenerOf(Callback callback) : callback_{std::move(callback)} {}
      void call(const Change& change) override { callback_(change); }

    private:
      Callback callback_;
   };
   // One subscription, and all of them. Known to the source only.
   struct Entry;
   struct List;

   Subscription add(Ptr<Listener> listener);
   void deliver(const Change& change);

   Ptr<Counted> list_; // null until the first subscription, then a `List`
};

} // namespace Pello
