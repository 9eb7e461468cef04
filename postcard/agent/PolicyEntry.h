// `PolicyEntry`: what the agent knows about a policy in one family: the version in the file, the
// ACL configuration in the helper, and what the rules client holds as far as its answers tell.
// Relies on the policy builder for the records. `PolicyAgent` changes entries; `PolicyPlan` reads
// them.
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

// Every address family, in the order in which a policy's families are worked on.
inline constexpr Policy::Family families[] = {Policy::Family::ipv4, Policy::Family::ipv6};

// The name and the family of a policy: unique in a file.
using PolicyKey = std::pair<std::string, Policy::Family>;

// A policy as one reading of the file has it. The entries of its families share one version.
struct PolicyVersion {
   Policy::Policy policy;
   Pello::Ptr<const PolicyMap::PolicyMapSmCommonData> data; // the record made of it; never null
   bool tcpFlags = true; // whether the hardware that the same file names matches TCP flags
};

// The policies of `file`, in its order; none is null. Keeps no reference to `file`.
std::vector<std::shared_ptr<const PolicyVersion>> versionsOf(const Policy::PolicyFile& file);

// Whether the helper makes the same rules of `a` and `b` in `family`. Interfaces are not compared.
bool sameRules(const PolicyVersion& a, const PolicyVersion& b, Policy::Family family);

// Whether the rules client is to be asked again.
enum class Retry : std::uint8_t {
   none,  // no: the latest request has its final answer, or is still in flight
   later, // yes, at a time that is not chosen yet: the latest request was lost or refused for now
   now,   // yes, at the entry's next turn in the queue
};

// Why the rules client may hold an ACL that the helper has deleted.
enum class Residue : std::uint8_t {
   none,               // it holds none, as far as is known
   earlierVersion,     // the helper deleted a posted version and has made none in its place
   unconfirmedRemoval, // the request to remove the ACL has no answer yet
   refusedRemoval,     // the rules client refused to remove the ACL; `removalAnswer` says why
};

// One policy in one family. Between two steps of the agent, these invariants hold:
//  - `overdue` only when `state` is `waiting`; `settle` ends it;
//  - `retry` is `later` only when `state` is `failed` or the entry is overdue;
//  - `retry` may be `now` for a policy that the helper refuses, while there is a residue; this has
//    an effect only when the file does not want the policy any more;
//  - `removalAnswer` is not empty only when `residue` is `refusedRemoval`;
//  - an entry without `wanted`, `config` and `residue` is of no further use: `reload` drops it.
struct PolicyEntry {
   // The version that the file asks for. Null: the policy, or its interfaces of this family, are
   // gone from the file.
   std::shared_ptr<const PolicyVersion> wanted;
   std::size_t order = 0; // place in the file; the largest number when `wanted` is null

   // The helper's ACL configuration, shared with the helper. Null: the helper has none.
   Pello::Ptr<OruPostcardTelemetry::PostcardTelemetryAclConfig> config;
   // The version that the helper was given last, whether it made `config` of it or refused it. Kept
   // after `config` was deleted, to delete it once more. Null before the first.
   std::shared_ptr<const PolicyVersion> made;

   // The members that PolicyReport shows, and explains.
   PolicyState state = PolicyState::waiting;
   std::string text;
   U32 generation = 0;
   double since = 0;
   bool overdue = false;

   // The answers that the history of `config` holds. Empty without `config`.
   std::vector<AnsweredRequest> answers;

   Retry retry = Retry::none;
   Residue residue = Residue::none;
   std::string removalAnswer; // text of the rules client, for people
};

// Sets state and text; `since` changes only when the state does. Clears `overdue` and `retry`.
void settle(PolicyEntry& entry, PolicyState state, std::string text);

// Sets the state of an entry for which the rules client should hold no ACL. Without a residue that
// is `removed` or, when the file wants the policy, `empty` or `waiting`. With a residue the state
// becomes `failed`, unless the entry is overdue, and another attempt is asked for (`tryLater`).
void settleWithoutRules(PolicyEntry& entry);

// Changes `retry` from `none` to `later`; leaves `now` as it is.
void tryLater(PolicyEntry& entry);

// Sets the residue. `answer`, for `refusedRemoval` only, is what the rules client answered.
void leave(PolicyEntry& entry, Residue residue, std::string answer = {});

// Whether neither the file nor the helper nor, as far as is known, the rules client has the policy.
bool nothingRefersTo(const PolicyEntry& entry);

// Whether the helper refused the version `made`. It would refuse the same version again.
inline bool refused(const PolicyEntry& entry) {
   return entry.state == PolicyState::invalid || entry.state == PolicyState::unsupported;
}

// What is reported about the entry. The history is empty while the helper has no configuration: it
// belongs to the configuration and goes with it.
PolicyReport reportOf(const PolicyKey& key, const PolicyEntry& entry);

} // namespace Postcard::Agent
