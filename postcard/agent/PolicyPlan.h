// `stepsOf`: what has to be done for a policy in one family. `refusalsOf`: whether a file can be
// followed at all. Relies on `PolicyEntry` and the plug-in host.
//
// Nothing is planned ahead: steps lead from what is there, not from what an earlier file said.
// Asked again after each step and each answer, they end where the file wants to be, whatever has
// happened in between.
#pragma once

#include "postcard/agent/PolicyEntry.h"
#include "postcard/host/PluginHost.h"

#include <memory>
#include <string>
#include <vector>

namespace Postcard::Agent {

enum class Verb : std::uint8_t {
   build,      // makes the ACL configuration, anew when there is one, and commits it
   commit,     // commits it as it is
   remove,     // deletes it, once more when the rules client has not confirmed that
   addIntf,    // attaches an interface
   removeIntf, // detaches one
};

struct Step {
   Verb verb;
   Orlix::IntfId intf; // of addIntf and removeIntf
};

// The steps that lead to what is wanted of the policy in `family`, the first of which can be taken
// when no request is in flight. None: it is there, or waits for the next attempt.
std::vector<Step> stepsOf(const PolicyEntry& entry, Policy::Family family);

// What a helper refuses of the policies, "name family: message" each. Made on scratch helpers of
// `host`; nothing else changes.
std::vector<std::string>
refusalsOf(const std::vector<std::shared_ptr<const PolicyVersion>>& versions,
           const Policy::Hardware& hardware, const Host::PluginHost& host);

} // namespace Postcard::Agent
