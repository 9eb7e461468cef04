// The two symbols that the module exports, both with C linkage, for the run-time loader: the
// version word and the factory. A version script hides everything else.
#include "Kiv/PlatformVersion.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Helper.h"

extern "C" {

// The version of the platform for which this module was built. A host of another version must not
// call the factory: objects and virtual tables may be laid out differently.
// Declared `extern` first: a constant at namespace scope is otherwise not visible outside.
extern const U32 oruPostcardPlatformVersion;
const U32 oruPostcardPlatformVersion = Kiv::platformVersion;

// Returns a new helper whose reference count is 0; the caller must take the first counted
// reference. The helper takes a counted reference to each record; each may be null.
PolicyMap::PolicyMapAclHelper* oruPostcardPolicyAclHelperFactory(
      OruPostcardTelemetry::PostcardTelemetryRulesClientSmConfig* clientConfig,
      const PostcardTelemetry::HwCapability* hwCapability);

PolicyMap::PolicyMapAclHelper* oruPostcardPolicyAclHelperFactory(
      OruPostcardTelemetry::PostcardTelemetryRulesClientSmConfig* clientConfig,
      const PostcardTelemetry::HwCapability* hwCapability) {
   return new OruPostcardTelemetry::OruPostcardPolicyAclHelper{clientConfig, hwCapability};
}

} // extern "C"
