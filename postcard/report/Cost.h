// `Cost`: what the policies of a file cost in TCAM entries, as a value, as text and as JSON. Relies
// on the data model for the ACLs and on the names of rules for the classes.
#pragma once

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/PostcardTelemetryAclConfig.h"
#include "postcard/policy/Policy.h"
#include "postcard/policy/SampleRate.h"
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
   std::size_t entries = 0;   // TCAM entries; 0 for a class that makes no rule
   Policy::SamplingRate rate; // of its packets
};

// What one policy costs in one family.
struct AclCost {
   std::string policy; // its name
   Policy::Family family = Policy::Family::ipv4;
   std::vector<ClassCost> classes; // in the order of matching
   std::size_t entries = 0;        // TCAM entries of all classes
};

// What all chosen policies cost.
struct Cost {
   std::vector<AclCost> acls;
   std::vector<Refusal> refused;      // policies without an ACL; they cost nothing
   std::size_t entries = 0;           // TCAM entries of all `acls`; `add` keeps it up to date
   std::optional<std::size_t> budget; // TCAM entries that the hardware has; absent: not known

   // Appends `acl` and adds its entries to the sum.
   void add(AclCost acl);
   // Whether the entries fit into the budget; true without one.
   bool fits() const { return !budget || entries <= *budget; }
};

// What `acl` costs, class by class. `acl` must be the ACL that `policy` compiled to in `family`:
// the class of a rule is read from the name that the helper gave it.
AclCost costOf(const Policy::Policy& policy, Policy::Family family,
               const OruPostcardTelemetry::PostcardTelemetryAclConfig& acl);

// A table with a line for each ACL, for each of its classes with
// its sampling rate, and for the total. With a budget, a
// last line says whether the entries fit. Refusals are not in the text: they are messages, on
// standard error.
std::string text(const Cost& cost);

// A whole document: {"schema", "acls", "refused", "totals", "budget"}. "budget" is null without
// one.
nlohmann::ordered_json json(const Cost& cost);

} // namespace Postcard::Report
