#include "postcard/policy/FeatureToggles.h"

#include "FeatureToggle/FeatureToggle.h"

namespace Postcard::Policy {

ToggleMap declaredToggles() {
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
