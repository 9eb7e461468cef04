// `wordsOf`: packets and rules in the layout of a ternary memory, a few 64-bit words each. The
// yardsticks compare these words. Relies on `RuleMatch`.
//
// IPv4 takes three words: both addresses; protocol, ports and flags; the sampled fields. IPv6 takes
// six, because each address takes two. A field that a packet may lack has a bit that says that the
// packet has it.
#pragma once

#include "postcard/classifier/RuleMatch.h"

#include <array>
#include <cstddef>

namespace Bench {

using Words = std::array<U64, 6>;

// A packet matches when it equals `value` in the bits of `mask`.
struct TernaryWords {
   Words value{};
   Words mask{};
};

inline std::size_t wordCount(Orlix::AddressFamily family) {
   return family == Orlix::AddressFamily::ipv4 ? 3 : 6;
}

Words wordsOf(const Postcard::Packets::Packet& packet);

// The rule must not be impossible.
TernaryWords wordsOf(const Postcard::Classifier::RuleMatch& rule, Orlix::AddressFamily family);

} // namespace Bench
