// `buildPolicy`: the records that a switch's agent hands to a helper, made from a policy as plain
// values. Relies on the policy having been checked: nothing is refused here. A policy that breaks a
// promise of `Policy.h` makes a record with which the helper may end the process.
#pragma once

#include "PolicyMap/PolicyMapSmCommonData.h"
#include "PostcardTelemetry/HwCapability.h"
#include "postcard/policy/Policy.h"

namespace Postcard::Policy {

// The match option that names `family` in the records and in calls of the helper's operations.
PolicyMap::ClassMapMatchOption matchOptionOf(Family family);

// The record of `policy`: its key, interfaces and classes, and the priorities of the classes. A
// family with interfaces has priority data, which is empty when no class takes part; a family
// without interfaces has none. Never null. A new object at each call, which keeps no reference to
// `policy`.
Pello::Ptr<PolicyMap::PolicyMapSmCommonData> buildPolicy(const Policy& policy);

// The record of what the hardware can match. Never null; a new object at each call.
Pello::Ptr<PostcardTelemetry::HwCapability> buildHwCapability(const Hardware& hardware);

} // namespace Postcard::Policy
