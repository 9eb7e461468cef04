// `prove`: whether an ACL does, for every packet of its family, what the filters of its policy
// mean; as a value, as text and as JSON. Relies on `RuleRuns` and `Residues`.
//
// Two readings of the filters are compared with the rules. The rules must be exactly the reading
// `built`; any packet that they treat otherwise is a departure. Where `built` differs from `meant`,
// the plug-in is bound to build rules that do something else than the filters say: these
// differences are listed "by design", as DESIGN.md numbers them.
//
// Rules of a class stand side by side in an ACL. So the ACL is right when the rules of every class
// take exactly the set of the class, and the classes stand in their order. The order has to be
// looked at: two rules that have changed places across classes leave the union of either class as
// it was.
#pragma once

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/PostcardTelemetryAclConfig.h"
#include "postcard/analysis/PacketSet.h"
#include "postcard/analysis/Region.h"

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <string>
#include <vector>

namespace Postcard::Analysis {

enum class Verdict : U8 {
   proven,     // no packet is treated otherwise
   departs,    // there are packets that are treated otherwise
   notDecided, // a limit was reached, and nothing wrong was found before
};

// Packets that the ACL treats otherwise than the filters.
struct Departure {
   std::string className; // of the class that gets packets wrongly, or does not get its own; empty
                          // for a policy without classes
   Policy::Location location; // of the class
   Packets::Packet witness;   // one of them
   std::string meant;         // "class 'web', sampled", or "no class"
   std::string done;          // "rule 'rest-ipv4-tcp', sampled", or "no rule"
};

// A difference by design. The numbers are those of the list in DESIGN.md, "The software TCAM and
// what a policy means". Its fourth cannot come from a policy file, and its fifth makes no ACL.
enum class Design : U8 {
   onlyTcpAndUdp = 1,
   dscpNotRewritten = 2,
   tcpFlagsNotCompared = 3,
};

struct ByDesign {
   Design design = Design::onlyTcpAndUdp;
   std::string className;
   Policy::Location location; // of the class
   Packets::Packet witness;   // a packet that shows the difference
};

// What is known about one ACL.
struct Proof {
   std::string policy; // its name
   Policy::Family family = Policy::Family::ipv4;
   std::size_t rules = 0; // that were looked at
   Verdict verdict = Verdict::proven;
   std::vector<Departure> departures; // one for each class that is concerned
   std::vector<ByDesign> byDesign;    // one for each class and difference that shows
   // Classes about which a limit kept the answer back; also with the verdict `departs`. A class
   // stands here, too, when only its differences by design are not known.
   std::vector<std::string> notDecided;
};

// Proves one ACL. `acl` must be what `policy` compiled to in the family of `circumstances`; a rule
// in it that the helper would not make is a departure, not a mistake of the caller. Every witness
// has been confirmed by reading rules and filters one after the other. Throws nothing when a limit
// of `space` is reached, but answers `notDecided`. All sets made in `space` before are void
// afterwards.
Proof prove(PacketSpace& space, const Policy::Policy& policy, const Circumstances& circumstances,
            const OruPostcardTelemetry::PostcardTelemetryAclConfig& acl);

// The sentence about a difference: "only TCP and UDP are matched, because …".
std::string_view designText(Design design);

// A line for the verdict, and one for each departure, difference by design and class not decided.
// `fileName` begins the lines that have a place.
std::string text(const Proof& proof, std::string_view fileName);
// {"policy", "family", "verdict", "rules", "departures", "byDesign", "notDecided"}
nlohmann::ordered_json json(const Proof& proof);

} // namespace Postcard::Analysis
