// `Cost`: what the policies of a file cost in TCAM entries, as a value, as text and as JSON. Relies
// on the data model for the ACLs and on the names of rules for the classes.
#pragma once

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/PostcardTelemetryAclConfig.h"
#include "postcard/policy/Policy.h"
#include "postcard/report/Refusal.h"

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace Postcard::Report {

// What one class costs in one ACL.
struct ClassCost {
   std::string name;
   std::size_t entries = 0;
};

// What one policy costs in one family.
struct AclCost {
   std::string policy; // its name
   Policy::Family family = Policy::Family::ipv4;
   std::vector<ClassCost> classes; // in the order of matching
   std::size_t entries = 0;        // their sum
};

// What all chosen policies cost.
struct Cost {
   std::vector<AclCost> acls;
   std::vector<Refusal> refused;
   std::size_t entries = 0;           // the sum of `acls`
   std::optional<std::size_t> budget; // entries that the hardware has; absent: not known

   void add(AclCost acl);
   // Whether the entries fit into the budget; true without one.
   bool fits() const { return !budget || entries <= *budget; }
};

// What `acl` costs, class by class. `acl` must be what `policy` compiled to in `family`.
AclCost costOf(const Policy::Policy& policy, Policy::Family family,
               const OruPostcardTelemetry::PostcardTelemetryAclConfig& acl);

// A table with a line per ACL, class and total; then, with a budget, whether the entries fit.
// Refusals are not in it.
std::string text(const Cost& cost);

// A whole document: {"schema", "acls", "refused", "totals", "budget"}. "budget" is null without
// one.
nlohmann::ordered_json json(const Cost& cost);

} // namespace Postcard::Report
