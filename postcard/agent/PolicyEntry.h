// `PolicyEntry`: a policy in one family as the agent keeps it: what the file wants, what the helper
// has, and what is known of the rules client. Relies on the policy builder for the records. The
// agent's core changes entries; `PolicyPlan` reads them.
#pragma once

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/PostcardTelemetryAclConfig.h"
#include "PolicyMap/PolicyMapSmCommonData.h"
#include "postcard/agent/PolicyReport.h"
#include "postcard/policy/Policy.h"

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Postcard::Agent {

inline constexpr Policy::Family families[] = {Policy::Family::ipv4, Policy::Family::ipv6};

// Name and family.
using PolicyKey = std::pair<std::string, Policy::Family>;

// A policy as one reading of the file has it; all its families share it.
struct PolicyVersion {
   Policy::Policy policy;
   Pello::Ptr<const PolicyMap::PolicyMapSmCommonData> data; // the record made of it
   bool tcpFlags = true; // the hardware of the same file matches TCP flags
};

// The policies of a file, in its order; none is null.
std::vector<std::shared_ptr<const PolicyVersion>> versionsOf(const Policy::PolicyFile& file);

// Whether the helper makes the same rules of both in `family`.
bool sameRules(const PolicyVersion& a, const PolicyVersion& b, Policy::Family family);

// Whether the rules client is to be asked again.
enum class Retry : std::uint8_t {
   none,  // the latest request was answered for good, or still has time
   later, // the latest request was lost, or refused for now; the next attempt has no date yet
   now,   // the next attempt is to be made when the entry's turn comes
};

// What the rules client may hold although the helper has deleted it.
enum class Residue : std::uint8_t {
   none,
   earlierVersion,     // the helper refused the version that should have replaced it
   unconfirmedRemoval, // the request to remove it has no answer yet
   refusedRemoval,     // the rules client refused to remove it; the answer is kept
};

// One policy in one family. Thus, between two steps of the agent:
//  - `overdue` only when `state` is waiting; any other news ends it (`settle`);
//  - `retry` is `later` only when `state` is failed or the entry is overdue;
//  - `retry` is `now` also for a policy that the helper refuses while there is a residue: then it
//    takes effect when the file does not want the policy any more;
//  - `removalAnswer` is not empty only when `residue` is refusedRemoval;
//  - an entry without `wanted`, `config` and `residue` concerns nobody, and can be dropped.
struct PolicyEntry {
   // What the file wants. Null: nothing, the policy or its interfaces are gone.
   std::shared_ptr<const PolicyVersion> wanted;
   std::size_t order = 0; // place in the file

   // What the helper has, shared with the helper. Null: nothing.
   Pello::Ptr<OruPostcardTelemetry::PostcardTelemetryAclConfig> config;
   // What `config`, or the one before it was deleted, was made of. Null before the first.
   std::shared_ptr<const PolicyVersion> made;

   // What is reported of it; see PolicyReport.
   PolicyState state = PolicyState::waiting;
   std::string text;
   U32 generation = 0;
   double since = 0;
   bool overdue = false;

   Retry retry = Retry::none;
   Residue residue = Residue::none;
   std::string removalAnswer; // for people
};

// Sets the state; `since` changes only with it. Ends what was overdue or to be tried again.
void settle(PolicyEntry& entry, PolicyState state, std::string text);

// Settles an entry of which the rules client should hold nothing: `removed` or, when the file wants
// the policy, `empty` or `waiting`. With a residue the entry is `failed`, unless it is overdue, and
// to be tried again.
void settleWithoutRules(PolicyEntry& entry);

// Has the rules client asked again later, unless it is to be asked now.
void tryLater(PolicyEntry& entry);

// The rules client may still hold an ACL that the helper has deleted. `answer` is what it said to
// its removal; only for `refusedRemoval`.
void leave(PolicyEntry& entry, Residue residue, std::string answer = {});

// Neither the file nor the helper nor, as far as is known, the rules client has it.
bool nothingRefersTo(const PolicyEntry& entry);

// The helper refused what was wanted of it, and would again.
inline bool refused(const PolicyEntry& entry) {
   return entry.state == PolicyState::invalid || entry.state == PolicyState::unsupported;
}

PolicyReport reportOf(const PolicyKey& key, const PolicyEntry& entry);

} // namespace Postcard::Agent
