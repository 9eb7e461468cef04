// The feature toggles of a policy file: `declaredToggles` says which there are,
// `applyFeatureToggles` hands those of a file to the platform. Relies on the platform's
// FeatureToggle.
#pragma once

#include "postcard/policy/Policy.h"

#include <string_view>

namespace Postcard::Policy {

// The toggle for TCP control. While it is off, everyone who reads a filter takes for granted that a
// protocol has at most one port entry.
inline constexpr std::string_view tcpControlToggle = "FeaturePostcardTelemetryTcpControl";

// The toggles that exist, each as the platform's toggle file declares it, or on when that file says
// nothing. What this process has set since does not count. Reads the toggle file at every call.
ToggleMap declaredToggles();

// Makes `toggles` hold for the process, whatever the toggle file says; other toggles stay as they
// are. Call it before a helper is made: helpers read a toggle once per process.
void applyFeatureToggles(const ToggleMap& toggles);

} // namespace Postcard::Policy
