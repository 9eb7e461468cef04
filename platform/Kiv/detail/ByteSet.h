// `ByteSet`: a set of numbers from 0 to 255 in one word, for sets of enumerators. Relies on
// nothing.
//
// Numbers below 63, which are all that enumerators usually have, are bits of the word. A larger
// number makes the set wide: a block of 256 bits on the heap holds the members until the set is
// cleared. The word then has its highest bit set, and below it half of the block's address, which
// is even and so loses nothing.
#pragma once

#include "Pello/Types.h"

#include <cstddef>
#include <utility>

namespace Kiv {

class ByteSet {
 public:
   ByteSet() noexcept = default;
   // A copy has a block of its own. Throws `std::bad_alloc` when the other is wide.
   ByteSet(const ByteSet& other) : word_{other.isWide() ? copyOf(other.word_) : other.word_} {}
   // The other is empty afterwards.
   ByteSet(ByteSet&& other) noexcept : word_{std::exchange(other.word_, 0)} {}
   ByteSet& operator=(ByteSet other) noexcept {
      std::swap(word_, other.word_);
      return *this;
   }
   ~ByteSet() { clear(); }

   // How many members there are.
   std::size_t size() const noexcept {
      return isWide() ? wideSize() : static_cast<std::size_t>(__builtin_popcountll(word_));
   }
   bool has(U8 number) const noexcept {
      return isWide() ? wideHas(number) : number < wideBit && (word_ & bit(number)) != 0;
   }
   // Adds `number` and returns whether it was not there. Throws `std::bad_alloc` when the set has
   // to become wide and cannot; nothing changes then.
   bool insert(U8 number) {
      if (isWide() || number >= wideBit) [[unlikely]] {
         return wideInsert(number);
      }
      const U64 before = std::exchange(word_, word_ | bit(number));
      return word_ != before;
   }
   // Removes `number` and returns whether it was there.
   bool erase(U8 number) noexcept {
      if (isWide()) [[unlikely]] {
         return wideErase(number);
      }
      const U64 before = std::exchange(word_, word_ & ~(number < wideBit ? bit(number) : 0));
      return word_ != before;
   }
   // Removes all members and frees the block.
   void clear() noexcept {
      if (isWide()) [[unlikely]] {
         freeWide();
      }
      word_ = 0;
   }

   // What `next` returns behind the last member.
   static constexpr U32 end = 256;
   // The smallest member that is `from` or more, or `end`.
   U32 next(U32 from) const noexcept {
      if (isWide()) [[unlikely]] {
         return wideNext(from);
      }
      const U64 left = from < wideBit ? word_ >> from : 0;
      return left == 0 ? end : from + static_cast<U32>(__builtin_ctzll(left));
   }

 private:
   // The bit that marks a wide set; smaller numbers are members.
   static constexpr U32 wideBit = 63;

   static constexpr U64 bit(U8 number) noexcept { return U64{1} << number; }
   bool isWide() const noexcept { return (word_ >> wideBit) != 0; }

   // The same operations for a wide set. `wideInsert` makes the set wide if it is not.
   static U64 copyOf(U64 wideWord);
   std::size_t wideSize() const noexcept;
   bool wideHas(U8 number) const noexcept;
   bool wideInsert(U8 number);
   bool wideErase(U8 number) noexcept;
   U32 wideNext(U32 from) const noexcept;
   void freeWide() noexcept;

   U64 word_ = 0;
};

} // namespace Kiv
