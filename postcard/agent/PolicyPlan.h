// `stepsOf`: the steps that a policy needs in one family. `refusalsOf`: what the plug-in refuses in
// a file. Relies on `PolicyEntry` and the plug-in host.
//
// No plan is kept. The agent calls `stepsOf` anew after every step and every answer, and takes the
// first step only. So the steps lead from the present state to the one that the file asks for, even
// when an answer or another file has come in between.
#pragma once

#include "postcard/agent/PolicyEntry.h"
#include "postcard/host/PluginHost.h"

#include <memory>
#include <string_view>
#include <vector>

namespace Postcard::Agent {

// What the helper is asked to do. Every verb but `build` needs an ACL configuration; `remove` makes
// one when there is none.
enum class Verb : std::uint8_t {
   build,      // make the ACL configuration from `wanted`, anew when there is one, and commit it
   commit,     // commit the ACL configuration as it is
   remove,     // delete it, or delete it once more when the rules client has not confirmed that
   addIntf,    // attach an interface to it
   removeIntf, // detach an interface from it
};

struct Step {
   Verb verb;
   Orlix::IntfId intf; // only for `addIntf` and `removeIntf`
};

// The steps from the entry's present state to the one that the file asks for in `family`. `family`
// must be that of the entry. The first step may be taken only while no request is in flight. Empty
// when the state is reached, when the helper has refused the version that the file asks for, or
// when the entry waits for its next attempt.
std::vector<Step> stepsOf(const PolicyEntry& entry, Policy::Family family);

// The state of a policy that the helper refuses with `message`.
PolicyState refusedState(std::string_view message);

// What the helper refuses of `versions` on `hardware`, in the order of the file, each with the
// place of the policy and of what the helper cannot express, but without the name of the file. The
// code is the state that the policy would get. Empty when the helper accepts all. Each policy is
// compiled on a scratch helper of `host`, which is thrown away; no request is posted to a rules
// client.
std::vector<ReloadFinding>
refusalsOf(const std::vector<std::shared_ptr<const PolicyVersion>>& versions,
           const Policy::Hardware& hardware, const Host::PluginHost& host);

} // namespace Postcard::Agent
