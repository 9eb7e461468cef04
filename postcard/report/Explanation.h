// `Explanation`: what happens to single packets and why, ACL by ACL and class by class, as a value,
// as text and as JSON. Relies on `ExplainedAcl`.
#pragma once

#include "postcard/report/ExplainedAcl.h"
#include "postcard/report/Refusal.h"

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace Postcard::Report {

// What one class has to do with a packet.
struct ClassExplanation {
   std::string name;
   std::optional<Miss> miss; // the first field that fails; absent when none does
};

// The rule that matches a packet.
struct RuleHit {
   U32 index; // in the order of matching
   std::string name;
};

// What one ACL does with a packet.
struct AclExplanation {
   std::string acl;    // its key, such as "web-ipv4"
   std::string policy; // its name
   Policy::Family family = Policy::Family::ipv4;
   std::optional<RuleHit> rule;   // absent when no rule matches
   bool sampled = false;          // false without a rule
   U8 dscpBefore = 0;             // of the packet, 0..63
   U8 dscpAfter = 0;              // the same without a rule
   std::optional<U8> dscpOfClass; // that the class of the rule asks for; absent when it does not
   std::size_t matched = 0; // index in `classes` of the rule's class; their number without a rule
   std::vector<ClassExplanation> classes; // in the order of matching
};

// What happens to one packet.
struct PacketExplanation {
   std::string packet; // as `printPacket` writes it
   // Of the ACLs that the switch looks the packet up in; empty when it looks into none.
   std::vector<AclExplanation> acls;
};

struct Explanation {
   std::vector<PacketExplanation> packets;
   std::vector<Refusal> refused; // policies that have no ACL and therefore no say
};

// Explains one packet. Counts its hits in the tables of `acls`. Throws what
// `ExplainedAcl::explain` throws.
PacketExplanation explainPacket(std::vector<ExplainedAcl>& acls, const Packets::Packet& packet);

// A line per packet, ACL and class. Refusals are not in it.
std::string text(const Explanation& explanation);

// A whole document: {"schema", "packets", "refused"}. In an ACL that has no rule for the packet,
// "rule" and "class" are null. "notReached" names the classes behind "class" that would have the
// packet if "class" did not.
nlohmann::ordered_json json(const Explanation& explanation);

} // namespace Postcard::Report
