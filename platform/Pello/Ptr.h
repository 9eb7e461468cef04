// `Ptr<T>`: a counted reference to an object that derives from `Counted`. The object is deleted
// when its last reference is dropped. Relies on the thread-safety switch.
//
// While the switch is on, threads may share an object, each through a `Ptr` of its own. Two threads
// must not use one `Ptr` at a time when one of them changes it.
#pragma once

#include "Pello/ThreadSafety.h"

#include <compare>
#include <cstddef>
#include <type_traits>
#include <utility>

namespace Pello {

// Base of everything that is held through `Ptr`. The count is in the object, so a `Ptr` may be made
// from a raw pointer at any time. A new object has no reference; one made with `new` leaks unless a
// `Ptr` takes it.
class Counted {
 public:
   Counted() noexcept = default;
   // A copy is another object: it starts without references.
   Counted(const Counted&) noexcept {}
   Counted& operator=(const Counted&) noexcept { return *this; }

   virtual ~Counted();

   // Called whenever the count falls to 0. Deletes the object, which must have been made with
   // `new`. A type whose objects have another owner overrides this function to keep the object; the
   // function is then called again when a later reference is dropped.
   //
   // A constructor or destructor must not make a `Ptr` to its own object: dropping that reference
   // takes the count from 1 to 0, and deletes the object while it is being made or destroyed.
   virtual void lastUserGone() const;

   // How many references exist. With several threads the answer may be old when it arrives.
   U32 references() const noexcept { return references_.value(); }

 private:
   template <class T>
   friend class Ptr;

   void addReference() const noexcept { references_.add(1); }
   void dropReference() const {
      if (references_.subtract(1) == 0) {
         lastUserGone();
      }
   }

   mutable SwitchedCounter<U32> references_;
};

// A counted reference to a `T`, or null. `T` derives from `Counted` and may be const: a
// `Ptr<const T>` gives read-only access, and a `Ptr<T>` converts to it as a `Ptr` to a derived
// class converts to one to its base.
template <class T>
class Ptr {
 public:
   using Element = T;

   constexpr Ptr() noexcept = default;
   constexpr Ptr(std::nullptr_t) noexcept {}
   // Adds a reference to `object`, which may be null. Implicit and safe for an object that other
   // references hold already, because the count is in the object.
   Ptr(T* object) noexcept : object_{object} {
      if (object_ != nullptr) {
         object_->addReference();
      }
   }
   Ptr(const Ptr& other) noexcept : Ptr{other.object_} {}
   Ptr(Ptr&& other) noexcept : object_{std::exchange(other.object_, nullptr)} {}
   template <class U>
      requires std::is_convertible_v<U*, T*>
   Ptr(const Ptr<U>& other) noexcept : Ptr{other.get()} {}
   template <class U>
      requires std::is_convertible_v<U*, T*>
   Ptr(Ptr<U>&& other) noexcept : object_{other.release()} {}
   ~Ptr() {
      if (object_ != nullptr) {
         object_->dropReference();
      }
   }

   // Drops the old reference last, when this `Ptr` already holds the new one: the old object's
   // destructor may read this `Ptr`.
   Ptr& operator=(Ptr other) noexcept {
      std::swap(object_, other.object_);
      return *this;
   }

   // The object, or null. The pointer is borrowed: it is valid while some reference exists.
   T* get() const noexcept { return object_; }
   // The object. Undefined when this reference is null.
   T& operator*() const noexcept { return *object_; }
   T* operator->() const noexcept { return object_; }
   explicit operator bool() const noexcept { return object_ != nullptr; }

   // Returns the object and becomes null without changing the count. For conversions between kinds
   // of `Ptr`: nothing else can drop the reference that the caller then has.
   T* release() noexcept { return std::exchange(object_, nullptr); }

   // Whether both refer to the same object; the objects' values are not compared.
   friend bool operator==(const Ptr& a, const Ptr& b) noexcept { return a.object_ == b.object_; }
   friend bool operator==(const Ptr& a, std::nullptr_t) noexcept { return a.object_ == nullptr; }

 private:
   T* object_ = nullptr;
};

// A reference to the same object as a `T`; null when the object is not a `T` or `object` is null.
template <class T, class U>
Ptr<T> dynamicCast(const Ptr<U>& object) {
   return Ptr<T>{dynamic_cast<T*>(object.get())};
}

} // namespace Pello
