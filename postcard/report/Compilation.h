// `Compilation`: the totals of the ACLs that a policy file became, as a value, as text and as JSON.
// Relies on the data model for the ACLs.
#pragma once

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/PostcardTelemetryAclConfig.h"
#include "postcard/report/Refusal.h"

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <string>
#include <vector>

namespace Postcard::Report {

struct Compilation {
   std::size_t acls = 0;
   std::size_t rules = 0;        // rules with different names; one rule may have several indexes
   std::size_t tcamEntries = 0;  // indexes in the order of matching; each takes a hardware entry
   std::vector<Refusal> refused; // policies and families without an ACL; not counted above

   // Counts `acl` in. Keeps no reference to it.
   void add(const OruPostcardTelemetry::PostcardTelemetryAclConfig& acl);
};

// "ACLs: N, rules: N, TCAM entries: N" and a line end.
std::string text(const Compilation& compilation);

// A whole document: {"schema", "acls", "refused", "totals"}. `acls` is the list of ACLs, each as
// `Json::entityJson` makes it. The caller makes the list while it compiles, so that not all ACLs
// need to be in memory at once.
nlohmann::ordered_json json(const Compilation& compilation, nlohmann::ordered_json acls);

} // namespace Postcard::Report
