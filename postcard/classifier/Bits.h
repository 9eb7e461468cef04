// `Bits`: the value of a field as a row of up to 128 bits, and `Prefix`: the values that begin
// alike. Internal to this room. Relies on nothing but integers.
#pragma once

#include "Pello/Types.h"

#include <algorithm>
#include <bit>
#include <compare>
#include <span>

namespace Postcard::Classifier {

// 128 bits, the first of them highest in `high`. A field of fewer bits comes first and zeros fill
// the rest, so fields of every width share one tree. Ordered as a number.
struct Bits {
   U64 high = 0;
   U64 low = 0;

   friend constexpr bool operator==(Bits, Bits) noexcept = default;
   friend constexpr std::strong_ordering operator<=>(Bits, Bits) noexcept = default;
};

// The first `length` bits set and the others clear. `length` is at most 64.
constexpr U64 firstOf64(unsigned length) {
   return length == 0 ? 0 : ~U64{0} << (64 - length);
}

// Whether the first `length` bits, at most 128, are the same.
constexpr bool agree(Bits a, Bits b, unsigned length) {
   if (length <= 64) {
      return ((a.high ^ b.high) & firstOf64(length)) == 0;
   }
   return a.high == b.high && ((a.low ^ b.low) & firstOf64(length - 64)) == 0;
}

// How many bits, counted from the first, are the same; 128 for equal values.
constexpr unsigned commonLength(Bits a, Bits b) {
   const int high = std::countl_zero(a.high ^ b.high);
   return static_cast<unsigned>(high < 64 ? high : 64 + std::countl_zero(a.low ^ b.low));
}

// The `count` bits from bit `at` on, as a number. Requires 1 <= count <= 64; the bits lie in one
// half of the value.
constexpr std::size_t slice(Bits value, unsigned at, unsigned count) {
   const U64 half = at < 64 ? value.high : value.low;
   return half << (at % 64) >> (64 - count);
}

// The number whose eight bytes begin at `bytes`, in network order. In one expression, which
// compilers turn into one load.
constexpr U64 bigEndian64(const U8* bytes) {
   return U64{bytes[0]} << 56 | U64{bytes[1]} << 48 | U64{bytes[2]} << 40 | U64{bytes[3]} << 32 |
          U64{bytes[4]} << 24 | U64{bytes[5]} << 16 | U64{bytes[6]} << 8 | U64{bytes[7]};
}

// An address of 4 or 16 bytes, in network order. `bytes` may be longer than an IPv4 address.
constexpr Bits addressBits(const U8* bytes, bool ipv4) {
   if (ipv4) {
      return {U64{bytes[0]} << 56 | U64{bytes[1]} << 48 | U64{bytes[2]} << 40 | U64{bytes[3]} << 32,
              0};
   }
   return {bigEndian64(bytes), bigEndian64(bytes + 8)};
}

// A number of 16 bits, compared from its highest bit on.
constexpr Bits highestFirst(U16 value) {
   return {U64{value} << 48, 0};
}

// The same 16 bits in the opposite order: a mask of low bits becomes a prefix.
constexpr U16 reversed(U16 value) {
   unsigned bits = value;
   bits = (bits & 0x5555U) << 1 | (bits >> 1 & 0x5555U);
   bits = (bits & 0x3333U) << 2 | (bits >> 2 & 0x3333U);
   bits = (bits & 0x0f0fU) << 4 | (bits >> 4 & 0x0f0fU);
   return static_cast<U16>(bits << 8 | bits >> 8);
}

// The values whose first `length` bits are those of `value`. The other bits of `value` are zero.
struct Prefix {
   Bits value;
   U8 length = 0; // 0..128

   // A prefix stands before those that it contains.
   friend constexpr bool operator==(const Prefix&, const Prefix&) noexcept = default;
   friend constexpr std::strong_ordering operator<=>(const Prefix&,
                                                     const Prefix&) noexcept = default;

   constexpr bool contains(Bits other) const { return agree(value, other, length); }
};

} // namespace Postcard::Classifier
