#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/RuleConfig.h"

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/TraceSource.h"

namespace OruPostcardTelemetry {

using TypesTrace::traceSource;

void RuleConfig::copy(const RuleConfig& other) {
   RINGLOG_ENTRY();
   // Filter and action are reached through this rule, because a counted reference in between would
   // be counted for every rule.
   if (other.ruleFilter() != nullptr) {
      ruleFilterIs();
      ruleFilter()->copy(*other.ruleFilter());
   }
   if (other.ruleAction() != nullptr) {
      ruleActionIs();
      ruleAction()->copy(*other.ruleAction());
   }
}

Pello::Ptr<RuleConfig> ruleConfigFactory(const Pello::String& name) {
   return new RuleConfig{name};
}

} // namespace OruPostcardTelemetry
