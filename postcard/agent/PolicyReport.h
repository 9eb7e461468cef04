// `PolicyReport`: what can be told about a policy in one family, and `ReloadResult`, how a change
// of the file ended. Plain values; relies on nothing but the policy file's families.
#pragma once

#include "Pello/Types.h"
#include "postcard/policy/Policy.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Postcard::Agent {

// Where a policy stands in one family.
enum class PolicyState : std::uint8_t {
   invalid,     // the plug-in refused it for another reason than the next
   unsupported, // it asks for what rules cannot express
   empty,       // it has no rules, so there is nothing to program
   waiting,     // its turn has not come, or the rules client has not answered yet
   programmed,  // the rules client programmed the latest request
   failed,      // it could not, or still holds what it should not; the text says why
   removed,     // gone since the latest change of the file
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
   std::size_t operations = 0;        // that the change asks for; 0 when it is refused
   std::vector<std::string> findings; // why it is refused, a line each without its end
   bool unusableFile = false;         // for what the file says, before the plug-in was asked

   // For people: the findings, or how much there is to do. Ends in a line end.
   std::string text() const;
};

} // namespace Postcard::Agent
