// `updateRulesInAclConfig`: visits the classes of a policy in the order of their priorities and
// makes the rules of each. The first class that rules cannot express ends the walk; the rules of
// the classes before it stay. Relies on FilterCheck and RuleConstruction.
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Contract.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/FilterCheck.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Helper.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Naming.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/PortExpansion.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/TcpControl.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/TraceSource.h"
#include "TrafficPolicy/ActionSupportedMap.h"

#include <algorithm>
#include <cstddef>

namespace OruPostcardTelemetry {

using HelperTrace::traceSource;

namespace {

using TrafficPolicy::TrafficPolicyClassMapSmCommonData;
using TrafficClassDataPtr = OruPostcardPolicyAclHelper::TrafficClassDataPtr;

// Set-DSCP is missing here because `ActionSupportedMap` supports it in every feature.
const TrafficPolicy::ActionSupportedMap& supportedActions() {
   static const TrafficPolicy::ActionSupportedMap map{PolicyMap::ActionType::sample,
                                                      PolicyMap::ActionType::sampleAll};
   return map;
}

// Returns why rules cannot express the filter of the class, or the empty text. The class must have
// the filter collection that `key` names, with exactly one filter in it.
Kiv::String checkFilter(const PolicyMap::AclRuleKey& key,
                        const TrafficPolicyClassMapSmCommonData& classData,
                        const Pello::Ptr<const PostcardTelemetry::HwCapability>& hwCapability) {
   RINGLOG_ENTRY();
   const auto sfc = classData.aclStructuredFilter(key.aclName());
   if (sfc->filters() != 1) {
      contractBroken(FunctionText::updateRulesInAclConfig, "sfc->filters() == 1");
   }
   return checkUnsupportedFields(sfc->filter(0), hwCapability);
}

Kiv::String
checkUnsupportedActions(const Pello::Ptr<const TrafficPolicyClassMapSmCommonData>& classData) {
   RINGLOG_ENTRY();
   const Kiv::String unsupported = supportedActions().checkUnsupportedActionConfig(classData);
   if (unsupported.empty()) {
      return {};
   }
   Kiv::String error = Kiv::String::join({unsupported, " in configuration"});
   RINGLOG_TRACE(0, "Error set to : {}", error);
   return error;
}

// Returns why rules cannot express the class, or the empty text. A message names the unsupported
// matches or the unsupported actions, never both: the actions are checked only after the filter has
// passed.
Kiv::String checkClass(const PolicyMap::AclRuleKey& key,
                       const Pello::Ptr<const TrafficPolicyClassMapSmCommonData>& classData,
                       const Pello::Ptr<const PostcardTelemetry::HwCapability>& hwCapability) {
   const Kiv::String error = checkFilter(key, *classData, hwCapability);
   return error.empty() ? checkUnsupportedActions(classData) : error;
}

TrafficClassDataPtr classDataOf(const PolicyMap::AclRuleKey& key,
                                const PolicyMap::PolicyMapSmCommonData& policyData) {
   return Pello::dynamicCast<const TrafficPolicyClassMapSmCommonData>(
         policyData.classData(key.className()));
}

// How many rules the classes make, to reserve the table of names at once: growing a table of a
// million names several times would take a tenth of the time of making them. A class that is
// refused later counts as well. A policy is unlikely to have more than `most`; one that does can
// grow.
std::size_t expectedRules(const PolicyMap::RulePriorityData& rules,
                          const PolicyMap::PolicyMapSmCommonData& policyData, bool tcpFlags) {
   constexpr std::size_t most = std::size_t{1} << 23;
   constexpr std::size_t templates = 3; // of the class, the protocol and the TCP flags
   std::size_t count = templates;
   for (const auto& rule : rules.rule()) {
      const TrafficClassDataPtr classData = classDataOf(rule.value(), policyData);
      const auto filters =
            classData == nullptr ? nullptr : classData->aclStructuredFilter(rule.value().aclName());
      if (const auto filter = filters == nullptr ? nullptr : filters->filter(0);
          filter != nullptr) {
         count += ruleCount(*filter, tcpFlags);
      }
   }
   return std::min(count, most);
}

} // namespace

Kiv::String OruPostcardPolicyAclHelper::updateRulesInAclConfig(const PolicyDataPtr& policyData,
                                                               MatchOption matchOption) {
   RINGLOG_ENTRY();
   const AclConfigPtr aclConfig = aclConfigColl(getAclConfigKey(policyData, matchOption));
   if (aclConfig == nullptr) {
      const Kiv::String error = Kiv::String::join(
            {"Acl Config not found for Policy ", " ", policyData->key().strDesc()});
      RINGLOG_TRACE(0, "Error: {}", error);
      contractBroken(FunctionText::updateRulesInAclConfig, "0");
   }
   const Acl::AclType aclType = matchOptionToAclType(matchOption);
   const Pello::Ptr<const PolicyMap::RulePriorityData> rules = policyData->rulePriority(aclType);
   if (rules == nullptr) {
      const Kiv::String error = Kiv::String::join(
            {"Rules Data not found for Policy ", " ", policyData->key().strDesc()});
      RINGLOG_TRACE(0, "Error: {}", error);
      contractBroken(FunctionText::updateRulesInAclConfig, "0");
   }
   // Not an error of the caller: `createPolicy` and `recreatePolicy` recognise this text and report
   // a success. The two blanks before the name are part of the text.
   if (rules->rules() == 0) {
      Kiv::String error = NoRules::message(policyData->key().strDesc());
      RINGLOG_TRACE(0, "Error: {}", error);
      return error;
   }
   return walkClasses(*rules, policyData, aclType, aclConfig);
}

// Each class begins at the index after the last rule of the class before it. The collection is
// sorted by priority, so ascending indexes are the order in which the classes match.
Kiv::String OruPostcardPolicyAclHelper::walkClasses(const PolicyMap::RulePriorityData& rules,
                                                    const PolicyDataPtr& policyData,
                                                    Acl::AclType aclType,
                                                    const AclConfigPtr& aclConfig) {
   aclConfig->ruleByNameReserve(
         aclConfig->ruleByNames() +
         expectedRules(rules, *policyData, tcpFlagsSupported(hwCapability())));
   U32 nextRuleIndex = 0;
   for (const auto& rule : rules.rule()) {
      const PolicyMap::AclRuleKey& key = rule.value();
      RINGLOG_TRACE_OF("updateRulesInAclConfig", 5, "Class Map : {}", key.className());
      const TrafficClassDataPtr classData = classDataOf(key, *policyData);
      Kiv::String error = checkClass(key, classData, hwCapability());
      if (!error.empty()) {
         RINGLOG_TRACE_OF("updateRulesInAclConfig", 0,
                          "Policy : {}, Acl Type : {}, Class Map : {}, Error {}", policyData->key(),
                          aclType, key.className(), error);
         return error;
      }
      nextRuleIndex = addRules(key, policyData, classData, aclConfig, nextRuleIndex);
   }
   return {};
}

} // namespace OruPostcardTelemetry
