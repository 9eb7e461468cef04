#include "postcard/analysis/AddressBlock.h"

#include <algorithm>
#include <bit>

namespace Postcard::Analysis {

unsigned AddressBlock::length() const {
   return static_cast<unsigned>(std::popcount(mask[0]) + std::popcount(mask[1]));
}

AddressWords wordsOf(std::span<const U8> address) {
   AddressWords words{};
   for (std::size_t i = 0; i < address.size(); ++i) {
      words[i / 8] |= U64{address[i]} << (56 - i % 8 * 8);
   }
   return words;
}

void writeAddress(const AddressWords& words, std::span<U8> bytes) {
   for (std::size_t i = 0; i < bytes.size(); ++i) {
      bytes[i] = static_cast<U8>(words[i / 8] >> (56 - i % 8 * 8));
   }
}

AddressBlock blockOf(const Orlix::IpGenPrefix& prefix) {
   AddressBlock block;
   block.value = wordsOf(prefix.address());
   unsigned left = prefix.length();
   for (U64& mask : block.mask) {
      const unsigned bits = std::min(left, 64U);
      mask = bits == 0 ? 0 : ~U64{0} << (64 - bits);
      left -= bits;
   }
   return block;
}

} // namespace Postcard::Analysis
