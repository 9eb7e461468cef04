// `Refusal`: a policy that the plug-in refused in one family, with the places of what it cannot
// express, as a value, as text and as JSON. Relies on plain policy values.
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

// The refusal of `policy` in `family`, for which the plug-in gave `message`, on hardware such as
// `hardware`. `file` is the name of the policy file for messages.
Refusal refusalOf(const Policy::Policy& policy, Policy::Family family,
                  const Policy::Hardware& hardware, std::string_view file,
                  const std::string& message);

// "POLICY FAMILY: MESSAGE" and, for each key, "   FILE:LINE:COLUMN: class 'CLASS': KEY". Each line
// ends with a line feed, and goes to standard error.
std::string text(const Refusal& refusal);

// A list of objects {"policy", "family", "message", "classes"}, in the order of `refusals`.
// "classes" is a list of {"class", "key", "file", "line", "column"}, one for each key. Every
// document about compiled policies has the list as its member "refused".
nlohmann::ordered_json json(const std::vector<Refusal>& refusals);

} // namespace Postcard::Report
