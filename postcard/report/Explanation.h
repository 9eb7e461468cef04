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

// How one class relates to a packet.
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
   bool sampled = false;          // whether a digest goes to the collector; false without a rule
   U8 dscpBefore = 0;             // the packet's own DSCP, 0..63
   U8 dscpAfter = 0;              // its DSCP behind the switch; `dscpBefore` without a rule
   std::optional<U8> dscpOfClass; // the DSCP that the rule's class asks for; absent: for none
   std::size_t matched = 0; // index in `classes` of the rule's class; their number without a rule
   std::vector<ClassExplanation> classes; // in the order of matching
};

// What happens to one packet.
struct PacketExplanation {
   std::string packet; // the packet in the form that `printPacket` writes
   // One for each ACL in which the switch looks the packet up; empty when there is none.
   std::vector<AclExplanation> acls;
};

struct Explanation {
   std::vector<PacketExplanation> packets;
   std::vector<Refusal> refused; // policies without an ACL; no packet is looked up in them
};

// Explains one packet. Counts its hits in the tables of `acls`, which is why these are not const.
// Throws what `ExplainedAcl::explain` throws.
PacketExplanation explainPacket(std::vector<ExplainedAcl>& acls, const Packets::Packet& packet);

// A line for each packet, for each ACL that it is looked up in, and for each class there. Refusals
// are not in the text: they are messages, on standard error.
std::string text(const Explanation& explanation);

// A whole document: {"schema", "packets", "refused"}. In an ACL that has no rule for the packet,
// "rule" and "class" are null. "notMatched" has the first failing field of each class that does not
// match. "notReached" names the classes behind "class" that match as well, but come too late.
nlohmann::ordered_json json(const Explanation& explanation);

} // namespace Postcard::Report
