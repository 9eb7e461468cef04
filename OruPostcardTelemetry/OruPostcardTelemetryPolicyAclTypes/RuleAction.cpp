#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/RuleAction.h"

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/TraceSource.h"

namespace OruPostcardTelemetry {

using TypesTrace::traceSource;

void RuleAction::copy(const RuleAction& other) {
   RINGLOG_ENTRY();
   // `dscpDataAndMask` is left out on purpose: see the contract in the header.
   action_.isAll(Kiv::collectionReport<actionId>(*this), other.action_);
}

Pello::Ptr<RuleAction> ruleActionFactory() {
   return new RuleAction;
}

} // namespace OruPostcardTelemetry
