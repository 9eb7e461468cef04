// `AclCounters`: what a rules client has counted for one ACL, and its text and JSON. Relies on the
// JSON library in its source.
#pragma once

#include "Pello/Types.h"

#include <functional>
#include <string>
#include <vector>

namespace Postcard::RulesClient {

struct RuleCounter {
   U32 index = 0;        // of the rule in the ACL
   std::string rule;     // its name
   bool sampled = false; // whether its packets are sampled
   U64 packets = 0;      // that this rule was the first to match
   U64 bytes = 0;        // of these packets, with their link headers
};

// An interface that an ACL is to be at.
struct InterfaceState {
   std::string name;
   std::string state; // one word: how the ACL is at the interface, or "waiting"
};

struct AclCounters {
   std::string acl;     // its key
   U64 samples = 0;     // sampled packets that were handed over
   U64 lostSamples = 0; // and those for which there was no room
   std::vector<InterfaceState> interfaces;
   std::vector<RuleCounter> rules; // by index, ascending
};

// The version of the JSON document. It rises when a key changes its meaning or disappears.
inline constexpr int countersJsonSchema = 1;

// For people: a line per ACL, one per interface, and one per rule that has counted something.
std::string countersText(const std::vector<AclCounters>& acls);
// The document: all rules.
std::string countersJson(const std::vector<AclCounters>& acls);

} // namespace Postcard::RulesClient
