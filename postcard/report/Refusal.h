// `Refusal`: a policy that the plug-in refused in one family, with the places of what it cannot
// express, as a value, as text and as JSON. An agent, which reports refusals in a form of its own,
// takes the places from here (`RefusedKey`). Relies on plain policy values.
#pragma once

#include "postcard/policy/Policy.h"

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <string_view>
#include <vector>

namespace Postcard::Report {

// Something in a class that the plug-in cannot express.
struct RefusedKey {
   std::string className;
   std::string key;           // as `Policy::UnsupportedKey::path`
   Policy::Location location; // line 0 when the policy was not read from a file
};

struct Refusal {
   std::string policy; // its name
   Policy::Family family;
   std::string message;   // the plug-in's own, never empty
   std::string file = {}; // that the policy was read from, as messages name it
   // Of every class concerned, in the order of matching. Empty when the plug-in has another reason
   // than what a class asks for.
   std::vector<RefusedKey> keys = {};
};

// What the plug-in cannot express of `policy` in `family`, on hardware such as `hardware`: of every
// class concerned, in the order of matching.
std::vector<RefusedKey> refusedKeysOf(const Policy::Policy& policy, Policy::Family family,
                                      const Policy::Hardware& hardware);

// The refusal of `policy` in `family`, for which the plug-in gave `message`, on hardware such as
// `hardware`. `file` is the name of the policy file for messages.
Refusal refusalOf(const Policy::Policy& policy, Policy::Family family,
                  const Policy::Hardware& hardware, std::string_view file,
                  const std::string& message);

// A line "FILE:LINE:COLUMN: class 'CLASS': KEY" for each key, behind `indent`. `file` is the policy
// file as messages name it, or empty when it is not known; then FILE: is left out.
std::string text(const std::vector<RefusedKey>& keys, std::string_view file,
                 std::string_view indent);

// A list of {"class", "key", "file", "line", "column"}, one for each key.
nlohmann::ordered_json json(const std::vector<RefusedKey>& keys, std::string_view file);

// "POLICY FAMILY: MESSAGE" and, for each key, "   FILE:LINE:COLUMN: class 'CLASS': KEY". Each line
// ends with a line feed, and goes to standard error.
std::string text(const Refusal& refusal);

// A list of objects {"policy", "family", "message", "classes"}, in the order of `refusals`.
// "classes" is the list of the keys. Every document about compiled policies has the list as its
// member "refused".
nlohmann::ordered_json json(const std::vector<Refusal>& refusals);

} // namespace Postcard::Report
