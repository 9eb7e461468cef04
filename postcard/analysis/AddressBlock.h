// `AddressBlock`: the addresses that agree with a value under a mask, in the form in which this
// room compares them. Relies on the platform's value of an address prefix.
#pragma once

#include "Orlix/IpGenPrefix.h"
#include "Pello/Types.h"

#include <array>
#include <span>

namespace Postcard::Analysis {

// Two words, highest bit of the address first. An IPv4 address stands in the upper half of the
// first word, so that bit N of an address has the same place in both families.
using AddressWords = std::array<U64, 2>;

struct AddressBlock {
   AddressWords value{}; // no bit outside `mask`
   AddressWords mask{};  // all zero: every address

   friend bool operator==(const AddressBlock&, const AddressBlock&) = default;

   bool contains(const AddressWords& address) const {
      return ((address[0] ^ value[0]) & mask[0]) == 0 && ((address[1] ^ value[1]) & mask[1]) == 0;
   }
   // Whether an address lies in both blocks.
   bool meets(const AddressBlock& other) const {
      return ((value[0] ^ other.value[0]) & mask[0] & other.mask[0]) == 0 &&
             ((value[1] ^ other.value[1]) & mask[1] & other.mask[1]) == 0;
   }
   // The addresses in both blocks. Requires `meets`.
   AddressBlock common(const AddressBlock& other) const {
      return {{value[0] | other.value[0], value[1] | other.value[1]},
              {mask[0] | other.mask[0], mask[1] | other.mask[1]}};
   }
   // The number of compared bits: each halves the block.
   unsigned length() const;
};

// The block of a prefix. A prefix of length 0, also the unset one, stands for every address.
AddressBlock blockOf(const Orlix::IpGenPrefix& prefix);

// An address of 4 or 16 bytes in network order, and back into the first `bytes.size()` bytes.
AddressWords wordsOf(std::span<const U8> address);
void writeAddress(const AddressWords& words, std::span<U8> bytes);

} // namespace Postcard::Analysis
