// `stepsOf`: the steps that a policy needs in one family. `refusalsOf`: whether the plug-in accepts
// a file at all. Relies on `PolicyEntry` and the plug-in host.
//
// No plan is kept. `stepsOf` computes the steps from the present state of the entry, after every
// step and every answer anew, so that they end in the state that the file asks for, whatever has
// happened meanwhile.
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
   Orlix::IntfId intf; // only for addIntf and removeIntf
};

// The steps from the entry's present state to the one that the file asks for in `family`. The first
// can be taken when no request is in flight. Empty when that state is reached, or when the entry
// waits for its next attempt.
std::vector<Step> stepsOf(const PolicyEntry& entry, Policy::Family family);

// The refusals of the helper, "name family: message" each; empty when it accepts all. The policies
// are made on scratch helpers of `host`, and nothing else changes.
std::vector<std::string>
refusalsOf(const std::vector<std::shared_ptr<const PolicyVersion>>& versions,
           const Policy::Hardware& hardware, const Host::PluginHost& host);

} // namespace Postcard::Agent
