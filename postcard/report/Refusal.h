// `Refusal`: a policy that the plug-in refused in one family, as a value, as text and as JSON.
// Relies on plain policy values.
#pragma once

#include "postcard/policy/Policy.h"

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <vector>

namespace Postcard::Report {

struct Refusal {
   std::string policy; // its name
   Policy::Family family;
   std::string message; // the plug-in's own, never empty
};

// "POLICY FAMILY: MESSAGE" and a line end, as it goes to standard error.
std::string text(const Refusal& refusal);

// A list of objects {"policy", "family", "message"}, in the order of `refusals`. Every document
// about compiled policies has this list as its member "refused".
nlohmann::ordered_json json(const std::vector<Refusal>& refusals);

} // namespace Postcard::Report
