// `Publisher`: tells subscribers that an attribute of an object has changed. Relies on counted
// references.
//
// What happens during a notification:
//  - Subscribers are called one after another in the order of subscription, before `publish`
//    returns.
//  - A subscriber may set attributes. That inner change is delivered to all subscribers at once,
//    inside the outer notification, so a later subscriber sees the inner change first.
//  - A subscriber that is added during a notification hears of changes that begin afterwards.
//  - A subscription that has ended is not called again, not even by the notification under way.
//  - An exception of a subscriber is counted and reported to standard error. The remaining
//    subscribers are called, and whoever changed the attribute does not see the exception.
//  - A subscriber may drop the last reference to the object, and so destroy the publisher.
//
// A publisher and its subscriptions belong to one thread at a time; they lock nothing.
#pragma once

#include "Pello/Ptr.h"
#include "Pello/Types.h"

#include <concepts>
#include <typeinfo>
#include <utility>

namespace Pello {

// A typed pointer to a value that somebody else owns. It is valid during the notification only: a
// subscriber that needs the value later copies it.
class ValueView {
 public:
   // No value.
   constexpr ValueView() noexcept = default;
   // Refers to `value`, which must exist as long as the view is read.
   template <class T>
   explicit ValueView(const T& value) noexcept : type_{&typeid(T)}, data_{&value} {}

   // The value, or null when there is none or its type is not exactly `T`. A value of a type
   // derived from `T`, or a `Ptr` to one, is another type.
   template <class T>
   const T* as() const noexcept {
      return type_ != nullptr && *type_ == typeid(T) ? static_cast<const T*>(data_) : nullptr;
   }
   // Whether there is no value.
   bool empty() const noexcept { return type_ == nullptr; }

 private:
   const std::type_info* type_ = nullptr;
   const void* data_ = nullptr;
};

// One change that had an effect. The object holds the new value already.
struct Change {
   U16 attribute;      // the attribute's identifier, unique in the type of the object
   ValueView key;      // for a collection: the key of the element; else empty
   ValueView oldValue; // the value or element before the change; empty when there was none
};

// The list of an object's subscribers. Costs one pointer until somebody subscribes.
class Publisher {
 public:
   // The handle of one subscription: destroying it ends the subscription. It may outlive the
   // publisher, and keeps the callback, with everything that the callback holds, until it ends.
   class Subscription {
    public:
      // No subscription.
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

      // Ends the subscription now: the callback is not called again. The callback is destroyed at
      // once, or when it returns if it is running. Has no effect without a subscription, so it may
      // be called twice.
      void end() noexcept;

    private:
      friend class Publisher;
      explicit Subscription(Ptr<Counted> entry) noexcept : entry_{std::move(entry)} {}
      Ptr<Counted> entry_; // an `Entry`; null without a subscription
   };

   Publisher() noexcept = default;
   // Neither copied nor moved, because subscribers belong to one object.
   Publisher(const Publisher&) = delete;
   Publisher& operator=(const Publisher&) = delete;
   ~Publisher();

   // Calls `callback(change)` at every change until the returned subscription ends. Dropping the
   // result ends it at once. Throws `std::bad_alloc` and what moving the callback throws.
   template <std::invocable<const Change&> Callback>
   [[nodiscard]] Subscription subscribe(Callback callback) {
      return add(Ptr<Listener>{new ListenerOf<Callback>{std::move(callback)}});
   }

   // Tells every subscriber of `change`. Costs one test for an object without subscribers.
   void publish(const Change& change) {
      if (list_ != nullptr) {
         deliver(change);
      }
   }

   // How many exceptions of subscribers have been kept from those who changed attributes.
   U64 containedExceptions() const noexcept;

 private:
   // A callback whose type the source does not know.
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
   // One subscription, and the list of all. Defined in the source.
   struct Entry;
   struct List;

   Subscription add(Ptr<Listener> listener);
   void deliver(const Change& change);

   Ptr<Counted> list_; // null until the first subscription, then a `List`
};

} // namespace Pello
