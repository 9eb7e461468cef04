// `PolicyEntry`: a policy in one family as the agent keeps it: what the file wants, what the helper
// has, and how the rules client stands to it. Relies on the policy builder for the records. The
// agent's core changes entries; `PolicyPlan` reads them.
#pragma once

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/PostcardTelemetryAclConfig.h"
#include "PolicyMap/PolicyMapSmCommonData.h"
#include "postcard/agent/PolicyReport.h"
#include "postcard/policy/Policy.h"

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

// The policies of a file, in its order.
std::vector<std::shared_ptr<const PolicyVersion>> versionsOf(const Policy::PolicyFile& file);

// Whether the same rules come of both in `family`.
bool sameRules(const PolicyVersion& a, const PolicyVersion& b, Policy::Family family);

// One policy in one family.
struct PolicyEntry {
   // What the file wants. Null: nothing, the policy or its interfaces are gone.
   std::shared_ptr<const PolicyVersion> wanted;
   std::size_t order = 0; // place in the file

   // What the helper has. Null: nothing.
   Pello::Ptr<OruPostcardTelemetry::PostcardTelemetryAclConfig> config;
   // What `config`, or the one before it was deleted, was made of. Null before the first.
   std::shared_ptr<const PolicyVersion> made;

   // How the rules client stands to it; see PolicyReport for the first five.
   PolicyState state = PolicyState::waiting;
   std::string text;
   U32 generation = 0;
   double since = 0;
   bool overdue = false;
   bool tryAgain = false; // the latest request was lost, or refused for now
   bool due = false;      // it failed or is overdue, and its next attempt is to be made
   // Why the rules client may hold rules that the helper has deleted. Empty: it does not.
   std::string held;
};

// It stands so from now on, or still; then it keeps the time since when. Nothing is overdue or to
// be tried again any more.
void settle(PolicyEntry& entry, PolicyState state, std::string text);

// The same for a policy of which the rules client should hold nothing. What is held nevertheless is
// a failure, or still awaits its answer when that is overdue; its deletion is to be tried again.
void settleWithoutRules(PolicyEntry& entry);

// The helper refused what was wanted of it, and would again.
inline bool refused(const PolicyEntry& entry) {
   return entry.state == PolicyState::invalid || entry.state == PolicyState::unsupported;
}

PolicyReport reportOf(const PolicyKey& key, const PolicyEntry& entry);

} // namespace Postcard::Agent
