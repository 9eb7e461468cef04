// `ByteSet`: a set of numbers from 0 to 255, for sets of enumerators. Relies on the standard
// library.
//
// Numbers below 64, which are all that enumerators usually have, are bits of one word, so that such
// a set allocates nothing. Larger numbers are in a block on the heap, made for the first of them.
#pragma once

#include "Pello/Types.h"

#include <bit>
#include <bitset>
#include <cstddef>
#include <memory>
#include <utility>

namespace Kiv {

class ByteSet {
 public:
   ByteSet() noexcept = default;
   // A copy has a block of its own. Throws `std::bad_alloc` when the other has a block.
   ByteSet(const ByteSet& other) : low_{other.low_}, high_{copyOf(other.high_)} {}
   // The other is empty afterwards.
   ByteSet(ByteSet&& other) noexcept
      : low_{std::exchange(other.low_, 0)}, high_{std::move(other.high_)} {}
   ByteSet& operator=(ByteSet other) noexcept {
      std::swap(low_, other.low_);
      std::swap(high_, other.high_);
      return *this;
   }
   ~ByteSet() = default;

   // How many members there are.
   std::size_t size() const noexcept {
      return static_cast<std::size_t>(std::popcount(low_)) +
             (high_ == nullptr ? 0 : high_->count());
   }
   bool has(U8 number) const noexcept {
      return number < lowEnd ? (low_ & bit(number)) != 0 : high_ != nullptr && highHas(number);
   }
   // Adds `number` and returns whether it was not there. Throws `std::bad_alloc` when the set needs
   // a block and cannot have it; nothing changes then.
   bool insert(U8 number) {
      if (number >= lowEnd) [[unlikely]] {
         return highInsert(number);
      }
      const U64 before = std::exchange(low_, low_ | bit(number));
      return low_ != before;
   }
   // Adds all members of `other`. Throws as `insert`; some members may be added then.
   void insertAll(const ByteSet& other) {
      low_ |= other.low_;
      if (other.high_ != nullptr) [[unlikely]] {
         highInsertAll(*other.high_);
      }
   }
   // Removes `number` and returns whether it was there.
   bool erase(U8 number) noexcept {
      if (number >= lowEnd) [[unlikely]] {
         return highErase(number);
      }
      const U64 before = std::exchange(low_, low_ & ~bit(number));
      return low_ != before;
   }
   // Removes all members and frees the block.
   void clear() noexcept {
      low_ = 0;
      high_.reset();
   }

   // What `next` returns behind the last member.
   static constexpr U32 end = 256;
   // The smallest member that is `from` or more, or `end`.
   U32 next(U32 from) const noexcept {
      if (const U64 left = from < lowEnd ? low_ >> from : 0; left != 0) {
         return from + static_cast<U32>(std::countr_zero(left));
      }
      return high_ == nullptr ? end : highNext(from);
   }

 private:
   static constexpr U32 lowEnd = 64;
   using High = std::bitset<end - lowEnd>; // bit 0 is the number `lowEnd`

   static constexpr U64 bit(U8 number) noexcept { return U64{1} << number; }

   static std::unique_ptr<High> copyOf(const std::unique_ptr<High>& other);
   bool highHas(U8 number) const noexcept;
   bool highInsert(U8 number);
   void highInsertAll(const High& other);
   bool highErase(U8 number) noexcept;
   U32 highNext(U32 from) const noexcept;

   U64 low_ = 0;
   std::unique_ptr<High> high_; // null: no number of `lowEnd` or more has been inserted
};

} // namespace Kiv
