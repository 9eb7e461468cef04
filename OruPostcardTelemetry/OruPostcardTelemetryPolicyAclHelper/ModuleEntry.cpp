// What the run-time loader finds in this module: the factory and the version word, both under
// C linkage names. Everything else of the module is hidden.
#include "Kiv/PlatformVersion.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Helper.h"

extern "C" {

// The platform for which this module was built. A host that differs must not call the factory.
extern const U32 oruPostcardPlatformVersion;
const U32 oruPostcardPlatformVersion = Kiv::platformVersion;

// Returns a new helper to which nobody holds a reference yet; the caller takes the first. It takes
// a reference to each record; null is allowed.
PolicyMap::PolicyMapAclHelper* oruPostcardPolicyAclHelperFactory(
      OruPostcardTelemetry::PostcardTelemetryRulesClientSmConfig* clientConfig,
      const PostcardTelemetry::HwCapability* hwCapability);

PolicyMap::PolicyMapAclHelper* oruPostcardPolicyAclHelperFactory(
      OruPostcardTelemetry::PostcardTelemetryRulesClientSmConfig* clientConfig,
      const PostcardTelemetry::HwCapability* hwCapability) {
   return new OruPostcardTelemetry::OruPostcardPolicyAclHelper{clientConfig, hwCapability};
}

} // extern "C"
