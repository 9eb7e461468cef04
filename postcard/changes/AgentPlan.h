// `agentStep`: what an agent that runs one policy file does about one pair of ACLs when it is given
// another file; `numberRequests`: in which order. Relies on `AclPair`.
//
// The steps are those of an agent whose rules client has put every ACL of the earlier file into
// force and accepts every request. An agent has one request in flight at a time, so the requests
// are numbered, and rules stay in force until the rules client has answered the request that
// replaces or removes them.
#pragma once

#include "postcard/changes/AclPair.h"

#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

namespace Postcard::Changes {

enum class AgentAction : U8 {
   none,
   interfaces, // adds and removes interfaces; the rules stay
   create,
   recreate,
   remove,
};

// "none", "interfaces", "create", "re-create" or "remove". Part of the JSON document.
std::string_view actionName(AgentAction action);

// What the agent does about one pair.
struct AgentStep {
   AgentAction action = AgentAction::none;
   // How many requests that takes. None when there are no rules to program or to remove.
   std::size_t requests = 0;
   std::size_t firstRequest =
         0; // its number, from 1, in the order of the pairs; 0 without requests
   // The old rules stay in force until the last request is answered. False for a pair without old
   // rules, and for one that keeps them.
   bool replacesRules = false;
};

// How many entries either version of a pair has. Absent: it has no ACL, because the file does not
// have the policy in the family, or the plug-in refuses it.
struct EntryCounts {
   std::optional<std::size_t> before;
   std::optional<std::size_t> after;
};

// What the agent does about one pair; `firstRequest` stays 0. `same` is `sameRules` of the pair.
AgentStep agentStep(const AclPair& pair, bool same, const EntryCounts& entries);

// Sets `firstRequest` of each step. Returns the number of all requests.
std::size_t numberRequests(const std::vector<AgentStep*>& steps);

} // namespace Postcard::Changes
