// `scripts()`: random lists of commands for a walk through the life of policies, in a form that
// RapidCheck can shrink and print. Whether a command is legal where it stands is for the walk to
// say. Relies on the model's vocabulary.
#pragma once

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/walk/LifecycleModel.h"

#include <cstddef>
#include <ostream>
#include <rapidcheck.h>
#include <vector>

namespace LifecycleModel {

enum class Kind : uint8_t {
   create, // operations
   recreate,
   commit,
   remove,
   addIntf,
   removeIntf,
   attach, // the policy itself changes
   detach,
   edit,
   succeed, // the rules client answers, or changes its ways
   fail,
   again,
   client,
   forget, // the history gets gaps
   skip,
};
const char* kindName(Kind kind);

// One step. Values beyond a table's end wrap around.
struct Command {
   Kind kind;
   uint8_t policy; // index of `newPolicies()`
   uint8_t family; // 0 IPv4, 1 IPv6
   uint8_t value;  // an interface, a text, a content, a key of the history, ...

   const char* interface() const;
   const char* answerText() const;
   Content content() const;
   Client client() const;
};

struct Script {
   std::vector<Command> commands;
};
std::ostream& operator<<(std::ostream& out, const Command& command);
// One command per line.
std::ostream& operator<<(std::ostream& out, const Script& script);

// The policies as they are at the start of a walk.
const std::vector<Policy>& newPolicies();

// At most 2,000 commands, 500 on average at the usual sizes: longer ones take long to shrink.
rc::Gen<Script> scripts();

} // namespace LifecycleModel
