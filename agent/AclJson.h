// `aclJson`: an ACL configuration as JSON, for programs. Relies on the data model.
#pragma once

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/PostcardTelemetryAclConfig.h"

#include <nlohmann/json.hpp>

namespace Agent {

// The version of the shape below; raised when a key changes its meaning or goes.
inline constexpr int aclJsonSchema = 1;

// {"name", "type", "interfaces", "programmedPolicy", "rulesClientUpdated", "status", "rules"}; a
// part of a rule that is not in force is null. Rules stand in the order of their indexes, which is
// the order in which hardware matches them.
nlohmann::ordered_json aclJson(const OruPostcardTelemetry::PostcardTelemetryAclConfig& aclConfig);

} // namespace Agent
