// `inWords`: a set of packets in a few lines of text, where a few lines suffice. Relies on
// `PacketSpace::slices`.
//
// A set is a union of products: some protocols, some sources, some destinations and so on. Each
// line is one product, with the values of a field as ranges, written as lists of entries write
// what a rule matches:
//
//   tcp 10.9.0.0/16 > 10.0.4.0/23 dport 3000-3305,3307-4000
//   tcp,udp any > 192.0.2.0/24 checksum 0x1/0xff
#pragma once

#include "postcard/analysis/PacketSet.h"

#include <cstddef>
#include <string>
#include <vector>

namespace Postcard::Analysis {

inline constexpr std::size_t mostLines = 4;
inline constexpr std::size_t mostRanges = 8; // of one field in one line

// The lines whose union is `set`; empty when that takes more than `mostLines`, or a field more than
// `mostRanges`, and for the empty set. `set` must be a part of `everything()` and, for IPv4, look
// at no more than 32 bits of an address.
std::vector<std::string> inWords(const PacketSpace& space, const PacketSet& set,
                                 Policy::Family family);

} // namespace Postcard::Analysis
