#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/RuleConfig.h"

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/TraceSource.h"

namespace OruPostcardTelemetry {

using TypesTrace::traceSource;

void RuleConfig::copy(const RuleConfig& other) {
   RINGLOG_ENTRY();
   if (other.ruleFilter() != nullptr) {
      ruleFilterIs()->copy(*other.ruleFilter());
   }
   if (other.ruleAction() != nullptr) {
      ruleActionIs()->copy(*other.ruleAction());
   }
}

Pello::Ptr<RuleConfig> ruleConfigFactory(const Pello::String& name) {
   return new RuleConfig{name};
}

} // namespace OruPostcardTelemetry
