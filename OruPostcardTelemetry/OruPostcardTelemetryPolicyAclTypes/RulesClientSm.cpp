#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/RulesClientSm.h"

namespace OruPostcardTelemetry {

U32 PostcardTelemetryRulesClientSmConfig::kickRequestInc(U32 step) {
   const U32 count = kickRequest() + step;
   kickRequestIs(count);
   return count;
}

U32 PostcardTelemetryRulesClientSmStatus::kickResponseInc(U32 step) {
   const U32 count = kickResponse() + step;
   kickResponseIs(count);
   return count;
}

Pello::Ptr<PostcardTelemetryRulesClientSmConfig> postcardTelemetryRulesClientSmConfigFactory() {
   return new PostcardTelemetryRulesClientSmConfig;
}

Pello::Ptr<PostcardTelemetryRulesClientSmStatus> postcardTelemetryRulesClientSmStatusFactory() {
   return new PostcardTelemetryRulesClientSmStatus;
}

} // namespace OruPostcardTelemetry
