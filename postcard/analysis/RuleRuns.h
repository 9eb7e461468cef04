// `ruleRuns`: an ACL as runs of rules of the same class, each with the exact set of packets that
// its rules take; `fateIn`: what one packet meets in the ACL. Relies on the data model for the
// ACL and on the names of rules for the classes.
//
// The rules of a class are a product: protocols, source blocks, destination blocks, flags. Rules
// that stand side by side and differ in one factor are united in that factor alone, and what all of
// them share is applied once, to the union. Rule by rule, the union takes about twenty times as
// long.
#pragma once

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/PostcardTelemetryAclConfig.h"
#include "postcard/analysis/PacketSet.h"
#include "postcard/analysis/Region.h"

#include <cstddef>
#include <optional>
#include <vector>

namespace Postcard::Analysis {

// Value and mask of 16 bits.
struct BlockOfPorts {
   U16 value = 0; // no bit outside `mask`
   U16 mask = 0;

   friend bool operator==(const BlockOfPorts&, const BlockOfPorts&) = default;
};

// What one rule asks of a packet and does with it, as a ternary memory would.
struct RuleShape {
   U8 protocol = 0;
   AddressBlock source;
   AddressBlock destination;
   std::optional<BlockOfPorts> sourcePort;      // absent: not compared. Present with mask 0: the
   std::optional<BlockOfPorts> destinationPort; // packet must have ports, whatever they are
   FlagMatch tcpFlags;                          // mask 0: not compared
   std::optional<SampleBits> sample;
   // No packet matches: the rule has no filter, a prefix of the other family or none, an unknown
   // sample field, or sample data that 16 bits cannot hold.
   bool impossible = false;
   bool sampled = false;
   bool marks = false; // rewrites bits of the DSCP
   // Neither sampling nor marking: a rule without action, or one that polices.
   bool unknownAction = false;
};

RuleShape shapeOf(const OruPostcardTelemetry::RuleConfig& rule, Policy::Family family);
bool contains(const RuleShape& shape, const Packets::Packet& packet);

// Consecutive rules of one class.
struct RuleRun {
   // The place of the class among those of the policy. The number of classes when the rules belong
   // to none, or do what the actions of their class do not mean: no packet may then reach them.
   std::size_t place = 0;
   PacketSet packets; // that match one of the rules
};

// The runs of `acl` in the order of matching, for the classes of the policy that it was made from.
// Throws LimitReached.
std::vector<RuleRun> ruleRuns(const PacketSpace& space,
                              const OruPostcardTelemetry::PostcardTelemetryAclConfig& acl,
                              const std::vector<ClassRegions>& classes, Policy::Family family);

// What an ACL does with a packet.
struct RuleFate {
   Pello::String rule;    // name of the first rule that matches; empty when none does
   std::size_t place = 0; // as `RuleRun::place`; the number of classes when no rule matches
   bool sampled = false;
   bool marks = false;
};

// Scans the rules.
RuleFate fateIn(const OruPostcardTelemetry::PostcardTelemetryAclConfig& acl,
                const std::vector<ClassRegions>& classes, Policy::Family family,
                const Packets::Packet& packet);

} // namespace Postcard::Analysis
