// `RangeMaskGen<T>::run`: cuts a range of numbers into blocks that hardware can match with a value
// and a mask. Relies on the assertion only.
//
// A mask whose ones are the upper bits matches a block of 2^n numbers that begins at a multiple of
// 2^n. Taking the largest such block at the low end, again and again, gives the fewest blocks:
// never more than 2 * bits - 2, which the range 1 to 2^bits - 2 needs.
#pragma once

#include "Pello/Assert.h"
#include "Pello/Types.h"

#include <algorithm>
#include <bit>
#include <concepts>
#include <vector>

namespace Orlix {

namespace Detail {

// Ends the process when `mask` low bits are more than a `T` has; otherwise returns them.
template <class T>
constexpr unsigned int checkedMaskBits(unsigned int mask) {
   if (mask > 8 * sizeof(T)) {
      Pello::assertionFailed({"Orlix/RangeMaskGen", __LINE__,
                              "unsigned int Orlix::RangeMaskGen::getMaskBits( T, T )"},
                             "mask <= 8 * sizeof( T )");
   }
   return mask;
}

} // namespace Detail

// `T` is an unsigned integer of at most 32 bits, because sizes of blocks, up to 2^bits, are counted
// in 64.
template <std::unsigned_integral T>
   requires(sizeof(T) <= sizeof(U32))
class RangeMaskGen {
 public:
   // One block.
   struct Entry {
      T data; // its first value
      T end;  // its last value
      T mask; // the bits that all its values share: all ones for one value, 0 for all values of `T`

      friend constexpr bool operator==(const Entry&, const Entry&) noexcept = default;
   };

   // How many low bits the first block of the range covers: the largest b for which `low` is a
   // multiple of 2^b and the block of 2^b values at `low` ends at `high` or before. 0 when `high`
   // is below `low`.
   static constexpr unsigned int getMaskBits(T low, T high) {
      const U64 values = high < low ? 1 : U64{high} - low + 1;
      const int aligned = std::countr_zero(low); // all bits for 0
      const int fitting = static_cast<int>(std::bit_width(values)) - 1;
      return Detail::checkedMaskBits<T>(static_cast<unsigned int>(std::min(aligned, fitting)));
   }

   // Appends the blocks of the range from `low` to `high`, both included, in ascending order;
   // nothing when `high` is below `low`. What `out` holds already stays. Throws `std::bad_alloc`.
   static constexpr void run(T low, T high, std::vector<Entry>& out) {
      while (low <= high) {
         const U64 size = U64{1} << getMaskBits(low, high);
         const T end = static_cast<T>(low + (size - 1));
         out.push_back({low, end, static_cast<T>(~(size - 1))});
         if (end == high) {
            return; // here, because the value after the last one of `T` would be 0
         }
         low = static_cast<T>(end + 1U);
      }
   }
};

} // namespace Orlix
