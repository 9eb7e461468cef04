// `PolicyReport`: what is reported about a policy in one family. `ReloadResult`: how a change of
// the file ended. Plain values; relies on the policy model for the families.
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
   unsupported, // it asks for what rules cannot express
   empty,       // it has no rules, so there is nothing to program
   waiting,     // no request was posted yet, or its answer is still to come
   programmed,  // the rules client programmed the latest request
   failed,      // the rules client could not, or holds rules that it should not; see the text
   removed,     // not in the latest file; the rules client holds nothing of it
};

// The word that `postcard status` shows.
std::string_view policyStateName(PolicyState state);

struct PolicyReport {
   std::string name;
   Policy::Family family = Policy::Family::ipv4;
   PolicyState state = PolicyState::waiting;
   std::string text;     // of the plug-in or the rules client; empty when there is nothing to say
   U32 generation = 0;   // the request counter of its latest request; 0 before the first
   double since = 0;     // seconds since 1970-01-01 00:00 UTC at which it took this state
   bool overdue = false; // waiting, and the time for an answer was up at least once
   std::vector<std::string> history; // the rules client's answers, oldest first
};

// How a reload ended.
struct ReloadResult {
   bool accepted = false;
   std::size_t operations = 0;        // steps that the change takes; 0 when it is refused
   std::vector<std::string> findings; // why it is refused, a line each without its end
   bool unusableFile = false;         // refused before the plug-in was asked

   // For people: the findings, or the number of operations. Ends with a line end.
   std::string text() const;
};

} // namespace Postcard::Agent
