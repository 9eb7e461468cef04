#include "postcard/policy/FeatureToggles.h"

#include "FeatureToggle/FeatureToggle.h"

namespace Postcard::Policy {

ToggleMap declaredToggles() {
   // The helper asks for the toggle with the same file and the same default. The two must agree,
   // else a file would be checked under one state and compiled under the other.
   constexpr bool whenUndeclared = true;
   const U32 state = FeatureToggle::declaredToggleState(
         tcpControlToggle, "PostcardTelemetryCommon.json", whenUndeclared);
   return {{std::string{tcpControlToggle}, state != 0}};
}

void applyFeatureToggles(const ToggleMap& toggles) {
   for (const auto& [name, on] : toggles) {
      FeatureToggle::toggleOverrideIs(name, on);
   }
}

} // namespace Postcard::Policy
