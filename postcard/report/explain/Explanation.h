// `Explanation`: what happens to single packets and why, ACL by ACL and class by class, as a value,
// as text and as JSON. Relies on `ExplainedAcl`, and on `whyNoAcl` for packets that no ACL is asked
// about.
#pragma once

#include "postcard/report/Refusal.h"
#include "postcard/report/explain/ExplainedAcl.h"
#include "postcard/report/explain/NoAcl.h"

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace Postcard::Report {

// The version of the JSON documents of `postcard explain`. Both kinds share it, about single
// packets and about a capture (`CaptureTotals.h`), because a program that reads one of them asks
// for it by the same command. Rises when a key of either document changes its meaning or
// disappears.
inline constexpr int explainJsonSchema = 1;

// How one class relates to a packet.
struct ClassExplanation {
   std::string name;
   std::optional<Miss> miss; // the first field that fails; absent when none does
};

// The rule that matches a packet.
struct RuleHit {
   U32 index; // in the order of matching
   std::string name;
   // Where the rule comes from; absent when `ExplainedAcl` was not told. It refers to the policy.
   std::optional<Host::RuleOrigin> origin;
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
   // The packet in the form that `printPacket` writes; empty for a frame that gives no packet.
   std::string packet;
   // Fields that are 0 only because whoever wrote the packet left them out; see `ParsedPacket`.
   std::vector<std::string> zeros;
   // One for each ACL in which the switch looks the packet up; empty when there is none.
   std::vector<AclExplanation> acls;
   std::optional<NoAcl> noAcl;     // present exactly when `acls` is empty
   std::optional<bool> asExpected; // whether it met the expectation; absent: there was none
};

struct Explanation {
   std::vector<PacketExplanation> packets;
   std::string expected;         // what every packet was to meet, as the user wrote it; or empty
   std::vector<Refusal> refused; // policies without an ACL; no packet is looked up in them
};

// Explains one packet. `acls` are those that the policies of `scope` became. Counts the packet's
// hits in their tables, which is why they are not const. Throws what `ExplainedAcl::explain`
// throws. The result has neither `zeros` nor `asExpected`: the caller sets them.
PacketExplanation explainPacket(std::vector<ExplainedAcl>& acls, const Scope& scope,
                                const Packets::Packet& packet);

// The explanation of a frame that gives no packet.
PacketExplanation explainUndecodable(Packets::Undecodable reason);

// A line for each packet, for each ACL that it is looked up in, and for each class there; for a
// packet without ACL, the reason. Refusals are not in the text: they are messages, on standard
// error. Neither are expectations.
std::string text(const Explanation& explanation);

// A whole document: {"schema", "packets", "refused", "expected"}. A packet is {"packet", "zeros",
// "acls", "noAcl", "asExpected"}. "packet" is null for a frame that gives no packet, "noAcl" when
// an ACL is asked; "expected" and "asExpected" when nothing was expected. In an ACL that has no
// rule for the packet, "rule" and "class" are null. A rule is {"index", "name", "origin"}; see
// `writeOrigin`, and null when the origin is absent. "notMatched" has the first failing field of
// each class that does not match. "notReached" names the classes behind "class" that match as well,
// but come too late.
nlohmann::ordered_json json(const Explanation& explanation);

} // namespace Postcard::Report
