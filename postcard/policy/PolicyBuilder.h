// `buildPolicy`: the records that a switch's agent hands to a helper, made from a policy as plain
// values. Relies on the policy having been checked: nothing is refused here.
#pragma once

#include "PolicyMap/PolicyMapSmCommonData.h"
#include "PostcardTelemetry/HwCapability.h"
#include "postcard/policy/Policy.h"

namespace Postcard::Policy {

// The match option that stands for `family` in the records and in the helper's operations.
PolicyMap::ClassMapMatchOption matchOptionOf(Family family);

// The record of `policy`: its key, interfaces and classes, and the priorities of the classes. A
// family with interfaces has priority data, which is empty when no class takes part; a family
// without interfaces has none. Never null.
Pello::Ptr<PolicyMap::PolicyMapSmCommonData> buildPolicy(const Policy& policy);

// The record of what the hardware can match. Never null.
Pello::Ptr<PostcardTelemetry::HwCapability> buildHwCapability(const Hardware& hardware);

} // namespace Postcard::Policy
