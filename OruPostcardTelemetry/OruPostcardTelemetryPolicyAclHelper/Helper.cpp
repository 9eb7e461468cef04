// The helper itself: construction, the collection of ACL configurations, the start-up switches.
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Helper.h"

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/TraceSource.h"

namespace OruPostcardTelemetry {

using HelperTrace::traceSource;

const Pello::TraceSource HelperTrace::traceSource{"OruPostcardTelemetryPolicyAclHelper"};

OruPostcardPolicyAclHelper::OruPostcardPolicyAclHelper(
      Pello::Ptr<PostcardTelemetryRulesClientSmConfig> clientConfig,
      Pello::Ptr<const PostcardTelemetry::HwCapability> hwCapability)
   : clientConfig_{std::move(clientConfig)}, hwCapability_{std::move(hwCapability)} {}

// The members go in the reverse order of their declaration: the collection's storage, the hardware
// capability, the request record.
OruPostcardPolicyAclHelper::~OruPostcardPolicyAclHelper() {
   aclConfigCollDelAll();
}

Pello::Ptr<OruPostcardPolicyAclHelper> oruPostcardPolicyAclHelperFactory(
      const Pello::Ptr<PostcardTelemetryRulesClientSmConfig>& clientConfig,
      const Pello::Ptr<const PostcardTelemetry::HwCapability>& hwCapability) {
   return new OruPostcardPolicyAclHelper{clientConfig, hwCapability};
}

// Ports are expanded here, not by the agent, and every operation ends with the rules client's
// answer.
void OruPostcardPolicyAclHelper::hwInit() {
   RINGLOG_ENTRY();
   updateActionSupportedIs(false);
   expandPortChannelsIs(true);
   establishedSupportedIs(false);
   subRulesForL4PortsIs(false);
   asyncOperationsIs(true);
}

} // namespace OruPostcardTelemetry
