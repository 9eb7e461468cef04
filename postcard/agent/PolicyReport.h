// `PolicyReport`: what is reported about a policy in one family. `ReloadResult`: whether a new file
// was accepted, and why not. Plain values; relies on the policy model for the families.
#pragma once

#include "Pello/Types.h"
#include "postcard/policy/Policy.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Postcard::Agent {

// The state of a policy in one family.
enum class PolicyState : std::uint8_t {
   invalid,     // the plug-in refused it, for another reason than `unsupported`
   unsupported, // the plug-in refused it: it asks for what rules cannot express
   empty,       // it makes no rules, so there is nothing to program
   waiting,     // no request was posted yet, or its answer is still to come
   programmed,  // the rules client confirmed the latest request
   failed,      // the rules client refused the latest request, or may hold an ACL that is gone
   removed,     // not in the latest file, and the rules client holds nothing of it
};

// The word for the state in `postcard status`; programs read it as well, so it does not change.
std::string_view policyStateName(PolicyState state);

struct PolicyReport {
   std::string name; // of the policy
   Policy::Family family = Policy::Family::ipv4;
   PolicyState state = PolicyState::waiting;
   std::string text;     // why it is in this state; empty when there is nothing to say
   U32 generation = 0;   // the request counter of its latest request; 0 before the first
   double since = 0;     // when it took this state, in seconds since 1970-01-01 00:00 UTC
   bool overdue = false; // waiting, and the time for an answer was up at least once
   std::vector<std::string> history; // the latest answers of the rules client, oldest first
};

// How a reload ended.
struct ReloadResult {
   bool accepted = false;
   std::size_t operations = 0;        // steps that the change takes; 0 when it is refused
   std::vector<std::string> findings; // why it is refused: lines without line end; empty if not
   bool unusableFile = false;         // it was refused before the plug-in was asked

   // For people: the findings, or the number of operations. Each line has a line end.
   std::string text() const;
};

} // namespace Postcard::Agent
