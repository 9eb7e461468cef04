// `Cursor`: reads numbers and texts from the bytes of a ring, from the beginning to the end and
// never beyond it. The bytes may be untrusted and need not be aligned. Relies on the layout for the
// length of texts.
#pragma once

#include "Kiv/Exception.h"
#include "Ringlog/detail/Layout.h"

#include <cstring>
#include <span>
#include <string>
#include <type_traits>

namespace Ringlog {

// The bytes are not a ring of this layout, or a part of it is damaged. The message says which part,
// for people.
class DamagedRing : public Kiv::Exception {
 public:
   using Exception::Exception;
   ~DamagedRing() override;
};

// Every operation that reads throws DamagedRing when too few bytes are left. What was read before
// stays read: a cursor is not used again after an exception.
class Cursor {
 public:
   // `what` names the bytes in the messages of exceptions, such as "the record". Both it and the
   // bytes must outlive the cursor.
   Cursor(std::span<const std::byte> bytes, const char* what) : left_{bytes}, what_{what} {}

   bool empty() const noexcept { return left_.empty(); }

   // The next `size` bytes, in place: valid as long as the bytes that the cursor was made of.
   std::span<const std::byte> take(std::size_t size) {
      if (size > left_.size()) {
         throw DamagedRing{std::string{what_} + " ends too early"};
      }
      const auto taken = left_.first(size);
      left_ = left_.subspan(size);
      return taken;
   }

   // The next bytes as a `T`, in the byte order of this machine.
   template <class T>
      requires std::is_trivially_copyable_v<T>
   T plain() {
      T value{};
      std::memcpy(&value, take(sizeof value).data(), sizeof value);
      return value;
   }

   // A text as descriptors have it: its length in 4 bytes, then its bytes. Throws DamagedRing also
   // when the length is more than `longestText`.
   std::string text() { return characters(checkedLength(plain<U32>())); }

   // Returns `size`, the length of a text. Throws DamagedRing when it is more than `longestText`.
   std::size_t checkedLength(std::size_t size) const {
      if (size > longestText) {
         throw DamagedRing{std::string{what_} + " has text of " + std::to_string(size) + " bytes"};
      }
      return size;
   }

 private:
   std::string characters(std::size_t size) {
      const auto bytes = take(size);
      return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
   }

   std::span<const std::byte> left_;
   const char* what_;
};

} // namespace Ringlog
