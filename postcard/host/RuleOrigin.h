// `forEachRule`: walks an ACL in the order of matching and says for each entry which part of the
// policy it was made from. Relies on plain policy values, and on the way in which the helper cuts
// ranges of ports into blocks (`Orlix::RangeMaskGen`).
//
// An origin is derived from the policy and then compared with the rule that stands at its index:
// class, protocol, prefixes, ports, TCP flags and sample match must all agree. So an origin is
// never a guess, and an ACL that the policy did not become is found out.
#pragma once

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/PostcardTelemetryAclConfig.h"
#include "postcard/policy/Policy.h"

#include <cstddef>
#include <functional>
#include <stdexcept>
#include <string>

namespace Postcard::Host {

// An ACL, and what it was made from. The references must outlive this value.
struct CompiledPolicy {
   const Policy::Policy& policy;
   Policy::Family family;
   bool tcpFlags; // whether the hardware matches TCP flags
   const OruPostcardTelemetry::PostcardTelemetryAclConfig& acl;
};

// The part of a policy that one entry was made from. The pointers refer into the policy.
struct RuleOrigin {
   const Policy::Class* which = nullptr; // never null
   U8 protocol = 0;                      // TCP or UDP
   // Null: the filter names neither TCP nor UDP, and then makes rules for both.
   const Policy::ProtocolMatch* match = nullptr;
   const Policy::PortEntry* entry = nullptr;         // null: the match has no port entries
   std::size_t entryNumber = 0;                      // in file order, from 1; 0 without an entry
   const Policy::NumberRange* source = nullptr;      // null: source ports are not compared
   const Policy::NumberRange* destination = nullptr; // null: the same of destination ports
   const Policy::TcpFlagMatch* flags = nullptr;      // null: TCP flags are not compared

   // The place of the port entry, else of the protocol, else of the class.
   const Policy::Location& location() const;
};

// The ACL is not what the policy becomes. The text names the first entry that does not agree.
class OriginError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

// Is given an entry: its index, its rule, and where it comes from. The origin goes after the call.
using RuleVisit = std::function<void(U32 index, const OruPostcardTelemetry::RuleConfig& rule,
                                     const RuleOrigin& origin)>;

// Calls `visit` once for each entry of the ACL, by ascending index. The helper must have accepted
// the policy. Throws OriginError at the first entry that does not agree with its origin, and when
// the ACL has fewer or more entries than the policy makes; entries before were visited by then. A
// rule that stands at two indexes is visited twice: each of the two has an origin of its own.
void forEachRule(const CompiledPolicy& compiled, const RuleVisit& visit);

// "from LINE:COLUMN entry N sport LOW-HIGH dport LOW-HIGH flags VALUE/MASK"; what is absent is left
// out. The place is `location()`.
std::string text(const RuleOrigin& origin);

} // namespace Postcard::Host
