// `Cursor`: reads bytes of a ring from left to right and never past their end, wherever they lie in
// memory. Used by the reader and by what formats its records.
#pragma once

#include "Kiv/Exception.h"
#include "Ringlog/detail/Layout.h"

#include <cstring>
#include <span>
#include <string>
#include <type_traits>

namespace Ringlog {

// The bytes are not a ring, or not one of this layout.
class DamagedRing : public Kiv::Exception {
 public:
   using Exception::Exception;
   ~DamagedRing() override;
};

class Cursor {
 public:
   // `what` is said to end too early; it must outlive the cursor, as must the bytes.
   Cursor(std::span<const std::byte> bytes, const char* what) : left_{bytes}, what_{what} {}

   bool empty() const noexcept { return left_.empty(); }

   // The next `size` bytes. Throws DamagedRing when there are fewer; so do all that follow.
   std::span<const std::byte> take(std::size_t size) {
      if (size > left_.size()) {
         throw DamagedRing{std::string{what_} + " ends too early"};
      }
      const auto taken = left_.first(size);
      left_ = left_.subspan(size);
      return taken;
   }

   template <class T>
      requires std::is_trivially_copyable_v<T>
   T plain() {
      T value{};
      std::memcpy(&value, take(sizeof value).data(), sizeof value);
      return value;
   }

   // Text of at most `longestText` bytes, with its length before it.
   std::string text() { return characters(length()); }

   // The same, padded as arguments are.
   std::string paddedText() {
      const std::size_t size = length();
      std::string text = characters(size);
      take(padded(sizeof(U32) + size) - sizeof(U32) - size);
      return text;
   }

 private:
   std::size_t length() {
      const std::size_t size = plain<U32>();
      if (size > longestText) {
         throw DamagedRing{std::string{what_} + " has text of " + std::to_string(size) + " bytes"};
      }
      return size;
   }
   std::string characters(std::size_t size) {
      const auto bytes = take(size);
      return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
   }

   std::span<const std::byte> left_;
   const char* what_;
};

} // namespace Ringlog
