// `buildPolicy`: turns a policy of the policy file into the records that a switch's agent hands to
// a helper. Relies on the file having been checked: nothing is refused here.
#pragma once

#include "PolicyMap/PolicyMapSmCommonData.h"
#include "PostcardTelemetry/HwCapability.h"
#include "postcard/policy/Policy.h"

namespace Postcard::Policy {

// The match option, and so the address family of rules, that stands for `family`.
PolicyMap::ClassMapMatchOption matchOptionOf(Family family);

// The record of `policy`, with its interfaces, classes and the order of its classes. A family to
// which interfaces are attached has priority data, be it empty; another family has none.
Pello::Ptr<PolicyMap::PolicyMapSmCommonData> buildPolicy(const Policy& policy);

// The record of the hardware's abilities.
Pello::Ptr<PostcardTelemetry::HwCapability> buildHwCapability(const Hardware& hardware);

// Makes the feature toggles be those of a file. Helpers read toggles once per process, so this
// comes before the first one works.
void applyFeatureToggles(const ToggleMap& toggles);

} // namespace Postcard::Policy
