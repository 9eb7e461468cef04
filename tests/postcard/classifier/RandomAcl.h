// `randomRule`: rules of an ACL as the data model holds them, of few values that collide with those
// of `randomPacket`. Relies on the data model.
#pragma once

#include "postcard/classifier/RandomPackets.h"
#include "support/AclRecords.h"

namespace RulesClientTest {

using OruPostcardTelemetry::RuleFilter;

inline void randomPorts(Random& random, RuleFilter& filter) {
   const auto match = [&] {
      return OruPostcardTelemetry::L4PortDataMask{
            pick(random, somePorts),
            pick<U16>(random, {0, 1, 0xfffe, 0xfffc, 0xffff, 0x8000, 0x0ff0, 3})};
   };
   filter.sportDataMaskValidIs(chance(random, 40));
   filter.sportDataMaskIs(match()); // without the flag it must mean nothing
   filter.dportDataMaskValidIs(chance(random, 40));
   filter.dportDataMaskIs(match());
}

// Adds a rule behind all others.
inline void randomRule(Random& random, Orlix::AddressFamily family, AclRecords& acl) {
   RuleFilter& filter = *acl.rule(pick<U8>(random, {6, 6, 17, 1}))->ruleFilter();
   filter.sourceIs(Orlix::IpGenPrefix{pick(random, prefixes(family))});
   filter.destinationIs(Orlix::IpGenPrefix{pick(random, prefixes(family))});
   randomPorts(random, filter);
   if (chance(random, 30)) {
      filter.tcpFlagAndMaskIs({pick<U8>(random, {0, 2, 16, 18}), pick<U8>(random, {0, 2, 18})});
   }
   if (chance(random, 40)) {
      const auto sample = filter.sampleDataAndMaskIs(Pello::String{"s"});
      sample->dataIs(pick<U32>(random, {0, 1, 2, 3, 0x8001, 0x10001}));
      sample->maskIs(pick<U32>(random, {0, 1, 3, 0xff, 0xffff, 0x10001, 0x20003}));
      sample->versionIs(pick<U32>(random, {0, 4}));
   }
}

} // namespace RulesClientTest
