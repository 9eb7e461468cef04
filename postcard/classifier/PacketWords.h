// The layout in which packets and rules are compared: where each field stands in which 64-bit word.
// `wordsOf` lays out a packet. Internal to this room; see `AclTable.h` for the idea. Relies on the
// packet model.
#pragma once

#include "postcard/packets/Packet.h"

#include <array>
#include <span>

namespace Postcard::Classifier {

inline constexpr std::size_t mostWords = 6;
inline constexpr std::size_t ipv4Words = 3;

// The word of ports and flags, the last but one: lowest bits of the fields, and "has" bits.
inline constexpr unsigned sourcePortAt = 0;
inline constexpr unsigned destinationPortAt = 16;
inline constexpr unsigned tcpFlagsAt = 32;
inline constexpr U64 hasPorts = U64{1} << 40;
inline constexpr U64 hasTcpFlags = U64{1} << 41;

// The word of the sampled fields, the last.
inline constexpr unsigned checksumAt = 0;
inline constexpr unsigned identificationAt = 16;
inline constexpr U64 hasChecksum = U64{1} << 32;
inline constexpr U64 hasIdentification = U64{1} << 33;
inline constexpr U64 impossible = U64{1} << 63; // set in no packet

// What a rule asks of a packet: the packet must equal `value` in the bits of `mask`.
struct RuleWords {
   std::array<U64, mostWords> value{};
   std::array<U64, mostWords> mask{};

   // Asks for set bits.
   void require(std::size_t word, U64 bits) {
      value[word] |= bits;
      mask[word] |= bits;
   }
   // Asks that the field whose lowest bit is `at` equals `data` in the bits of `fieldMask`.
   void field(std::size_t word, unsigned at, U64 data, U64 fieldMask) {
      value[word] |= (data & fieldMask) << at;
      mask[word] |= fieldMask << at;
   }
};

constexpr std::size_t wordCount(Orlix::AddressFamily family) {
   return family == Orlix::AddressFamily::ipv4 ? ipv4Words : mostWords;
}
constexpr std::size_t portWord(Orlix::AddressFamily family) {
   return wordCount(family) - 2;
}
constexpr std::size_t sampleWord(Orlix::AddressFamily family) {
   return wordCount(family) - 1;
}

using PacketWords = std::array<U64, mostWords>;

// The words of a packet; the first `wordCount` of its family are used. Fields that the packet does
// not have are 0, and so is the bit that says that it has them.
PacketWords wordsOf(const Packets::Packet& packet);

// The number whose bytes, at most 8, are in network order.
U64 bigEndian(std::span<const U8> bytes);

} // namespace Postcard::Classifier
