// `Ptr<T>`: a counted reference to an object that derives from `Counted`. The object goes when its
// last reference goes. Relies on the thread-safety switch.
#pragma once

#include "Pello/ThreadSafety.h"

#include <compare>
#include <cstddef>
#include <type_traits>
#include <utility>

namespace Pello {

// Base of everything that is held through `Ptr`. A new object has no reference yet.
class Counted {
 public:
   Counted() noexcept = default;
   // A copy is another object: it starts without references.
   Counted(const Counted&) noexcept {}
   Counted& operator=(const Counted&) noexcept { return *this; }

   virtual ~Counted();

   // Called when the last reference has gone: once, unless an override keeps the object and it is
   // referred to again. Deletes the object; an object with another owner overrides it. Because a
   // new object has no reference, a constructor or destructor that makes a `Ptr` to its own object
   // and drops it ends the object in the middle.
   virtual void lastUserGone() const;

   // How many references exist.
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

// A counted reference, or null. `Ptr<const T>` gives read-only access and is made from a `Ptr<T>`.
// Dereferencing a null one is undefined.
template <class T>
class Ptr {
 public:
   using Element = T;

   constexpr Ptr() noexcept = default;
   constexpr Ptr(std::nullptr_t) noexcept {}
   // Takes a reference to `object` (null allowed). Implicit: a raw pointer to a counted object is
   // as good as a reference, because the count lives in the object.
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

   // The old object is released last, when this reference already shows the new one.
   Ptr& operator=(Ptr other) noexcept {
      std::swap(object_, other.object_);
      return *this;
   }

   T* get() const noexcept { return object_; }
   T& operator*() const noexcept { return *object_; }
   T* operator->() const noexcept { return object_; }
   explicit operator bool() const noexcept { return object_ != nullptr; }

   // Gives the counted reference away without counting; this one becomes null.
   T* release() noexcept { return std::exchange(object_, nullptr); }

   // Identity, not value.
   friend bool operator==(const Ptr& a, const Ptr& b) noexcept { return a.object_ == b.object_; }
   friend bool operator==(const Ptr& a, std::nullptr_t) noexcept { return a.object_ == nullptr; }

 private:
   T* object_ = nullptr;
};

// A reference to the same object seen as a `T`, or null when it is not one.
template <class T, class U>
Ptr<T> dynamicCast(const Ptr<U>& object) {
   return Ptr<T>{dynamic_cast<T*>(object.get())};
}

} // namespace Pello
