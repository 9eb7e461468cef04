// `addRules`: the rules of one class. A template rule gets what all rules of the class share
// (prefixes, sample match, actions); ProtocolExpansion copies it into the numbered rules; then the
// template is removed. Relies on Naming and ProtocolExpansion.
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Contract.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/FilterCheck.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Helper.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Naming.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/TraceSource.h"
#include "PolicyMap/SetDscpAction.h"

namespace OruPostcardTelemetry {

using Classification::StructuredFilter;
using HelperTrace::traceSource;
using PolicyMap::ActionType;

void OruPostcardPolicyAclHelper::updateRuleAction(const ClassDataPtr& classData,
                                                  const RulePtr& ruleConfig) {
   RINGLOG_ENTRY();
   RINGLOG_TRACE(9, "Update action for Class : {}", classData->name());
   const Pello::Ptr<RuleAction> ruleAction = ruleConfig->ruleActionIs();
   for (const auto& entry : classData->action()) {
      switch (entry.key()) {
      case ActionType::sample:
         ruleAction->actionIs(RuleAction::sampleAction);
         RINGLOG_TRACE(5, "Setting action Sample ");
         break;
      case ActionType::sampleAll:
         ruleAction->actionIs(RuleAction::sampleAction);
         RINGLOG_TRACE(5, "Setting action Sample All ");
         break;
      case ActionType::setDscp:
         setDscp(*ruleAction, entry.value());
         break;
      default:
         break; // ClassMapWalk has refused classes with actions that rules cannot carry out
      }
   }
}

// The mask 0x3F rewrites all six bits of the DSCP.
void OruPostcardPolicyAclHelper::setDscp(RuleAction& ruleAction,
                                         const Pello::Ptr<PolicyMap::Action>& action) {
   const auto dscpAction = Pello::dynamicCast<const PolicyMap::SetDscpAction>(action);
   if (dscpAction == nullptr) {
      contractBroken(FunctionText::updateRuleAction, "dscpAction");
   }
   ruleAction.dscpDataAndMaskIs(DscpDataAndMask{dscpAction->dscp(), 0x3F});
   ruleAction.actionIs(RuleAction::setDscpAction);
   RINGLOG_TRACE_OF("updateRuleAction", 5, "Setting action Dscp, Value : 0x{:x}, Mask : 0x{:x}",
                    ruleAction.dscpDataAndMask().dscpData().value(),
                    ruleAction.dscpDataAndMask().dscpMask());
}

// The plain sample action takes the packets that satisfy the sample match; "sample all" takes every
// packet, so the rule must not have the sample match.
bool OruPostcardPolicyAclHelper::ignoreSampleData(const ClassDataPtr& classData) {
   RINGLOG_TRACE(9, "Class Name : {}", classData->name());
   const bool present = classData->actionHas(ActionType::sample);
   RINGLOG_TRACE(9, "Sample Action Present : {}", present);
   return !present;
}

U32 OruPostcardPolicyAclHelper::addRules(const PolicyMap::AclRuleKey& key,
                                         const PolicyDataPtr& policyData,
                                         const TrafficClassDataPtr& classMapData,
                                         const AclConfigPtr& aclConfig, U32 nextRuleIndex) {
   RINGLOG_ENTRY();
   RINGLOG_TRACE(5, "Acl Rule Key : {}", key);
   const FilterPtr sf = classMapData->aclStructuredFilter(key.aclName())->filter(0);
   const Acl::AclType aclType = matchOptionToAclType(key.matchOption());
   const auto rulePriority = policyData->rulePriority(aclType);
   if (!rulePriority->priorityHas(key)) {
      contractBroken(FunctionText::addRules, "rulePriority->priorityHas( key )");
   }
   RINGLOG_TRACE(5, "Class : {}, Acl Type : {}", classMapData->name(), aclType);
   const Pello::String name = ruleName(classMapData->name(), aclType);
   const RulePtr rule = aclConfig->ruleByNameIs(name);
   const Pello::Ptr<RuleFilter> ruleFilter = rule->ruleFilterIs();
   // A rule has room for one prefix per side; ClassMapWalk has refused filters with more. Without a
   // prefix the filter keeps `anyPrefix`.
   if (sf->sources() != 0) {
      const Orlix::IpGenPrefix& source = sf->source().begin().key();
      RINGLOG_TRACE(5, "Source Prefix : {}", source);
      ruleFilter->sourceIs(source);
   }
   if (sf->destinations() != 0) {
      const Orlix::IpGenPrefix& destination = sf->destination().begin().key();
      RINGLOG_TRACE(5, "Destination Prefix : {}", destination);
      ruleFilter->destinationIs(destination);
   }
   setSampleMatch(*sf, classMapData, *ruleFilter);
   updateRuleAction(classMapData, rule);
   nextRuleIndex = addRulesOfProtocols(aclConfig, rule, sf, nextRuleIndex);
   RINGLOG_TRACE(5, "Deleting Rule : {}", name);
   aclConfig->ruleByNameDel(name);
   return nextRuleIndex;
}

// The mask is checked and traced also for a class that goes without the sample match, so that a
// faulty filter is found whatever the actions are.
void OruPostcardPolicyAclHelper::setSampleMatch(const StructuredFilter& filter,
                                                const ClassDataPtr& classData,
                                                RuleFilter& ruleFilter) {
   // All rules share one string; a string per rule would be an allocation per rule.
   static const Pello::String childName{"sampleDataAndMask"};
   const auto& match = filter.tcpUdpCheckSumOrIpId();
   const U32 sampleData = match == nullptr ? 0 : match->data();
   U32 sampleMask = match == nullptr ? 0 : match->mask();
   const U32 sampleVersion = match == nullptr ? 0 : match->version();
   if (match != nullptr && sampleMask == 0) {
      contractBroken(FunctionText::addRules, R"(sampleMask && "Sample Mask should be non zero")");
   }
   RINGLOG_TRACE_OF("addRules", 5, "Sample data : 0x{:x} Sample Mask : 0x{:x} Sample Version : {} ",
                    sampleData, sampleMask, sampleVersion);
   if (ignoreSampleData(classData)) {
      RINGLOG_TRACE_OF("addRules", 5, "Setting Sample mask to zero");
      sampleMask = 0;
   }
   if (sampleMask == 0) {
      return;
   }
   const auto sample = ruleFilter.sampleDataAndMaskIs(childName);
   sample->dataIs(sampleData);
   sample->maskIs(sampleMask);
   sample->versionIs(sampleVersion);
}

// Makes rules for TCP and for UDP, or for only one of them when the filter has a protocol field for
// that one and none for the other. TCP comes first: the order of the indexes is visible.
U32 OruPostcardPolicyAclHelper::addRulesOfProtocols(const AclConfigPtr& aclConfig,
                                                    const RulePtr& rule, const FilterPtr& sf,
                                                    U32 nextRuleIndex) {
   const bool tcp = sf->protoFieldHas(singleProtocol(protocolTcp));
   const bool udp = sf->protoFieldHas(singleProtocol(protocolUdp));
   if (!tcp && !udp) {
      RINGLOG_TRACE_OF("addRules", 5, "Creating rules for TCP and UDP protocols");
      nextRuleIndex = addRulesProtoField(aclConfig, rule, sf, protocolTcp, nextRuleIndex);
      return addRulesProtoField(aclConfig, rule, sf, protocolUdp, nextRuleIndex);
   }
   if (tcp) {
      RINGLOG_TRACE_OF("addRules", 5, "Creating rules for TCP protocol");
      nextRuleIndex = addRulesProtoField(aclConfig, rule, sf, protocolTcp, nextRuleIndex);
   }
   if (udp) {
      RINGLOG_TRACE_OF("addRules", 5, "Creating rules for UDP protocol");
      nextRuleIndex = addRulesProtoField(aclConfig, rule, sf, protocolUdp, nextRuleIndex);
   }
   return nextRuleIndex;
}

} // namespace OruPostcardTelemetry
