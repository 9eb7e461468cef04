// `NoAcl`: why no ACL is asked about a packet, as a value, as text and as JSON; `whyNoAcl` finds
// the reason. Relies on plain policy values and on the packet model.
//
// A switch looks a packet up in the ACLs of its family that are attached to the interface where the
// packet came in. That there is none is often a mistake of the question (a mistyped interface) or
// of the policy file (a family that was forgotten), so it is never left without a reason.
#pragma once

#include "postcard/packets/PacketFrame.h"
#include "postcard/policy/Policy.h"

#include <nlohmann/json_fwd.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Postcard::Report {

enum class NoAclCause : U8 {
   undecodable,      // the frame gives no packet
   familyLeftOut,    // only ACLs of the other family were asked for
   noInterfaces,     // no policy has interfaces for the packet's family
   otherFamily,      // the packet's interface has policies for the other family only
   unknownInterface, // no policy has the packet's interface
   refused,          // the plug-in refused every policy that would be asked
};

// The cause as a word for programs: "undecodable", "family-left-out", "no-interfaces",
// "other-family", "unknown-interface" or "refused".
std::string_view causeName(NoAclCause cause);

struct NoAcl {
   NoAclCause cause;
   std::string text;  // one line for people, without the guess
   std::string guess; // the interface that was probably meant; empty: none is close
};

// The choice of a user: packets are looked up in the ACLs that these policies became.
struct Scope {
   std::vector<const Policy::Policy*> policies; // in the order of the file; none is null
   std::optional<Policy::Family> family;        // the only family; absent: both
};

// Why none of the ACLs that the policies in `scope` became is asked about `packet`. Call it only
// when that is so: a policy that has the packet's family and interface counts as refused.
NoAcl whyNoAcl(const Scope& scope, const Packets::Packet& packet);
// The same for all packets of `family` whose interface is not known.
NoAcl whyNoAcl(const Scope& scope, Policy::Family family);
// The same for a frame that gives no packet.
NoAcl whyNoAcl(Packets::Undecodable reason);

// `reason.text`, and the guess if there is one.
std::string text(const NoAcl& reason);

// {"code", "text", "guess"}. "text" is without the guess, and "guess" is null when there is none.
nlohmann::ordered_json json(const NoAcl& reason);

} // namespace Postcard::Report
