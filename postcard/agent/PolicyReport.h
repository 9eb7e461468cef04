// `PolicyReport`: what is reported about a policy in one family. `ReloadResult`: whether a new file
// was accepted, and why not. Plain values; relies on the policy model for the families, and on
// `RefusedKey` for what the plug-in cannot express.
#pragma once

#include "Pello/Types.h"
#include "postcard/policy/Location.h"
#include "postcard/policy/Policy.h"
#include "postcard/report/Refusal.h"

#include <cstddef>
#include <cstdint>
#include <optional>
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

// One answer of the rules client.
struct AnsweredRequest {
   U32 generation; // the counter of the request
   double when;    // when the answer came, in seconds since 1970-01-01 00:00 UTC
   bool succeeded;
   std::string text; // of the rules client; empty for most successes
};

struct PolicyReport {
   std::string name; // of the policy
   Policy::Family family = Policy::Family::ipv4;
   PolicyState state = PolicyState::waiting;
   std::string text;     // why it is in this state; empty when there is nothing to say
   U32 generation = 0;   // the request counter of its latest request; 0 before the first
   double since = 0;     // when it took this state, in seconds since 1970-01-01 00:00 UTC
   bool overdue = false; // waiting, and the time for an answer was up at least once
   std::vector<std::string> history;     // the latest answers of the rules client, oldest first
   std::vector<AnsweredRequest> answers; // the same answers, with what else is known of them
   std::size_t entries = 0; // rules of the helper's ACL configuration: entries of hardware
   // What the plug-in cannot express. Empty unless the state is `unsupported`.
   std::vector<Report::RefusedKey> refusedKeys = {};
};

// What whoever waits for all policies wants to know.
struct Outlook {
   bool allProgrammed = false; // each is programmed, has no rules, or has been removed
   bool anyFailed = false;     // one is failed or refused by the plug-in
};

// One reason why a file is refused, or why a policy of it is left out.
struct ReloadFinding {
   std::string file;                     // path of the policy file; empty: not about a file
   Policy::Location location;            // in that file; line 0: the file as a whole
   std::string policy;                   // whose class the plug-in refuses; empty: not about one
   std::optional<Policy::Family> family; // present exactly when `policy` is not empty
   // A word for programs: what kind of reason it is. For a finding in the file its `codeName`; for
   // a refusal by the plug-in the name of the state; else "toggles", "changing", "empty" or
   // "ending".
   std::string code;
   std::string text; // one line for people
   // What the plug-in cannot express, in `file`. Empty when `family` is absent, and when the
   // plug-in has another reason than what a class asks for.
   std::vector<Report::RefusedKey> keys = {};

   // The place, as far as there is one, and the text; no line end. A refusal by the plug-in names
   // policy and family instead of the place.
   std::string line() const;
   // `line`, and behind it a line for each of `keys`, which begins with three blanks. `indent`
   // stands before each line, and each ends with a line feed.
   std::string lines(std::string_view indent = {}) const;
};

// How a reload ended.
struct ReloadResult {
   bool accepted = false;
   std::size_t operations = 0;          // steps that the change takes; 0 when it is refused
   std::vector<ReloadFinding> findings; // why it is refused, or what is left out of what is not
   bool unusableFile = false;           // it was refused before the plug-in was asked
   std::size_t omittedFindings = 0;     // how many findings there are beyond these

   // For people: the findings with their keys, and the number of operations when it is accepted.
   // Each line has a line end.
   std::string text() const;
};

// A refusal before the plug-in was asked, for one reason. `file` is empty when the reason is not
// about the file.
ReloadResult refusedReload(std::string code, std::string text, std::string file = {});

} // namespace Postcard::Agent
