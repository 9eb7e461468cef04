// `randomMatch`: what a rule may ask, of few values that collide with those of `randomPacket`.
// Relies on `RuleMatch`.
#pragma once

#include "postcard/classifier/RandomPackets.h"
#include "postcard/classifier/RuleMatch.h"

namespace RulesClientTest {

using Postcard::Classifier::FieldMatch;
using Postcard::Classifier::RuleMatch;

// Prefixes in either direction, all, nothing, and masks that are neither.
inline const std::vector<U16> someMasks = {0,      0xffff, 0xffff, 0xfffe, 0xfff0, 0x8000,
                                           0x0001, 0x00ff, 0x0003, 0x8001, 0x0ff0, 0x0100};

inline FieldMatch<U16> randomField(Random& random, unsigned percent, const std::vector<U16>& data) {
   return chance(random, percent)
                ? FieldMatch<U16>{true, pick(random, data), pick(random, someMasks)}
                : FieldMatch<U16>{};
}

inline RuleMatch randomMatch(Random& random, Orlix::AddressFamily family) {
   const auto prefix = [&] {
      return Postcard::Classifier::prefixOf(Orlix::IpGenPrefix{pick(random, prefixes(family))});
   };
   RuleMatch match;
   match.source = prefix();
   match.destination = prefix();
   match.protocol = pick<U8>(random, {6, 6, 17, 1});
   match.impossible = chance(random, 3);
   match.sourcePort = randomField(random, 40, somePorts);
   match.destinationPort = randomField(random, 40, somePorts);
   match.checksum = randomField(random, 25, someSamples);
   match.identification = randomField(random, 10, someSamples);
   if (chance(random, 30)) {
      match.tcpFlags = {true, pick<U8>(random, {0, 2, 16, 18}), pick<U8>(random, {0, 2, 18, 0xff})};
   }
   return match;
}

} // namespace RulesClientTest
