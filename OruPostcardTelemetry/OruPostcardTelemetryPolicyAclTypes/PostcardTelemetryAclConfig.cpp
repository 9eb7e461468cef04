#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/PostcardTelemetryAclConfig.h"

namespace OruPostcardTelemetry {

Pello::Ptr<PostcardTelemetryAclConfigStatus> postcardTelemetryAclConfigStatusFactory() {
   return new PostcardTelemetryAclConfigStatus;
}

Pello::Ptr<PostcardTelemetryAclConfig>
postcardTelemetryAclConfigFactory(const Pello::String& aclConfigKey) {
   return new PostcardTelemetryAclConfig{aclConfigKey};
}

} // namespace OruPostcardTelemetry
