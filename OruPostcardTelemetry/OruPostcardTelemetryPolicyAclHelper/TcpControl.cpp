#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/TcpControl.h"

#include "FeatureToggle/FeatureToggle.h"

namespace OruPostcardTelemetry {

bool tcpFlagsSupported(const Pello::Ptr<const PostcardTelemetry::HwCapability>& hwCapability) {
   return hwCapability != nullptr && hwCapability->tcpFlagsSupported();
}

bool toggleFeaturePostcardTelemetryTcpControlEnabled() {
   // Read once: the toggle decides which filters are valid, and that must not change between two
   // classes of a policy.
   static const bool enabled =
         (FeatureToggle::getToggleState("FeaturePostcardTelemetryTcpControl",
                                        "PostcardTelemetryCommon.json", true) &
          1U) != 0;
   return enabled;
}

std::string portCountMessage(std::size_t ports) {
   return "Expected ports() to be 1, got " + std::to_string(ports);
}

} // namespace OruPostcardTelemetry
