// The feature toggles of a policy file: `declaredToggles` says which there are,
// `applyFeatureToggles` hands those of a file to the platform. Relies on the platform's
// FeatureToggle.
#pragma once

#include "postcard/policy/Policy.h"

#include <string_view>

namespace Postcard::Policy {

// The toggle for TCP control. While it is off, the helper asserts that a protocol has at most one
// port entry, so a file with more must be refused before it reaches the helper.
inline constexpr std::string_view tcpControlToggle = "FeaturePostcardTelemetryTcpControl";

// The toggles that exist, each as the platform's toggle file declares it, or on when that file says
// nothing about it. A file that cannot be used says nothing; one line on standard error reports it.
// What `applyFeatureToggles` has set is ignored. Reads the toggle file at every call.
ToggleMap declaredToggles();

// Sets `toggles` for the whole process, whatever the toggle file says. Toggles that are not in
// `toggles` keep their state. Must be called before the first helper makes a policy: helpers read
// each toggle once per process, so a later call does not reach them.
void applyFeatureToggles(const ToggleMap& toggles);

} // namespace Postcard::Policy
