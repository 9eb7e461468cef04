// The helper as an object: construction, destruction and the switches of its base class.
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Helper.h"

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/TraceSource.h"

namespace OruPostcardTelemetry {

using HelperTrace::traceSource;

const Pello::TraceSource HelperTrace::traceSource{"OruPostcardTelemetryPolicyAclHelper"};

OruPostcardPolicyAclHelper::OruPostcardPolicyAclHelper(
      Pello::Ptr<PostcardTelemetryRulesClientSmConfig> clientConfig,
      Pello::Ptr<const PostcardTelemetry::HwCapability> hwCapability)
   : clientConfig_{std::move(clientConfig)}, hwCapability_{std::move(hwCapability)} {}

// Empties the collection while the publisher still exists, so that subscribers hear of each
// removal. The members are then released in the reverse order of their declaration: the collection,
// the hardware capability, the request record.
OruPostcardPolicyAclHelper::~OruPostcardPolicyAclHelper() {
   aclConfigCollDelAll();
}

Pello::Ptr<OruPostcardPolicyAclHelper> oruPostcardPolicyAclHelperFactory(
      const Pello::Ptr<PostcardTelemetryRulesClientSmConfig>& clientConfig,
      const Pello::Ptr<const PostcardTelemetry::HwCapability>& hwCapability) {
   return new OruPostcardPolicyAclHelper{clientConfig, hwCapability};
}

// PortExpansion cuts port ranges into rules, so the agent must not; and operations complete with
// the rules client's answer, so they are asynchronous.
void OruPostcardPolicyAclHelper::hwInit() {
   RINGLOG_ENTRY();
   updateActionSupportedIs(false);
   expandPortChannelsIs(true);
   establishedSupportedIs(false);
   subRulesForL4PortsIs(false);
   asyncOperationsIs(true);
}

} // namespace OruPostcardTelemetry
