// `Workload`: the rules of an ACL and packets for them, and the workloads that are measured. Relies
// on `RuleMatch`, and on the data model for the ACL.
#pragma once

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/PostcardTelemetryAclConfig.h"
#include "postcard/classifier/RuleMatch.h"

#include <string>
#include <vector>

namespace Bench {

struct Workload {
   std::string label;
   Orlix::AddressFamily family = Orlix::AddressFamily::ipv4;
   std::vector<Postcard::Classifier::RuleMatch> rules;
   std::vector<Postcard::Packets::Packet> packets;
};

// Classes as operators write them: a source or none, a destination, TCP or UDP, ranges of ports cut
// into aligned blocks, a sampling mask. About `rules` rules, those of a class side by side.
Workload policy(Orlix::AddressFamily family, std::size_t rules);
// One class of every pair of a source and a destination port of `rules` pairs: the sets of
// destination ports have a rule in every word.
Workload portPairs(Orlix::AddressFamily family, std::size_t rules);
// Rules that have nothing to do with their neighbours: prefixes of every length, ports and flags.
Workload scattered(Orlix::AddressFamily family, std::size_t rules);

// The same rules as the helper would hand them over.
Pello::Ptr<OruPostcardTelemetry::PostcardTelemetryAclConfig> aclOf(const Workload& workload);

} // namespace Bench
