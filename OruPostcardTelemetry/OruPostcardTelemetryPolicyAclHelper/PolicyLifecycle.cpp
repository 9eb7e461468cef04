// The life of a policy: `createPolicy` and `recreatePolicy` build its ACL configuration,
// `commitPolicy` hands it to the rules client, `deletePolicy` removes it from both. Relies on
// AclConfigs, InterfaceBinding, ClassMapWalk and RulesClientRequest. The virtual operations among
// theirs are called through the virtual table, so that a class that derives from the helper can
// replace them.
#include "Kiv/System.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Contract.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Helper.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Naming.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/TraceSource.h"

namespace OruPostcardTelemetry {

using HelperTrace::traceSource;

namespace {

// Ends the process for any other match option than the IPv4 and the IPv6 access group. `where` is
// the line of the caller, so that the assertion's line number tells the operations apart.
void requireSupportedMatchOption(PolicyMap::ClassMapMatchOption matchOption,
                                 std::string_view function,
                                 std::source_location where = std::source_location::current()) {
   if (matchOption != PolicyMap::matchIpAccessGroup() &&
       matchOption != PolicyMap::matchIpv6AccessGroup()) {
      contractBroken(function,
                     "matchOption == PolicyMap::matchIpAccessGroup() || "
                     "matchOption == PolicyMap::matchIpv6AccessGroup()",
                     "unsupported match option", where);
   }
}

// Ends the process when no interface is attached: the agent creates a policy in a family only when
// it is attached there.
void requireAttached(std::size_t interfaces, std::string_view expression, std::string_view function,
                     std::source_location where = std::source_location::current()) {
   if (interfaces == 0) {
      contractBroken(function, expression, "Policy without attached interfaces", where);
   }
}

// The names of the two operations that build a configuration, for traces and assertions.
struct Creation {
   static constexpr const char* name = "createPolicy";
   static constexpr std::string_view text = FunctionText::createPolicy;
};
struct Recreation {
   static constexpr const char* name = "recreatePolicy";
   static constexpr std::string_view text = FunctionText::recreatePolicy;
};

} // namespace

template <class Operation>
void OruPostcardPolicyAclHelper::addAttachedInterfaces(const PolicyDataPtr& policyData,
                                                       MatchOption matchOption,
                                                       const AclConfigPtr& aclConfig) {
   if (matchOption == PolicyMap::matchIpv6AccessGroup()) {
      RINGLOG_TRACE_OF(Operation::name, 5, "Adding interface from intf6");
      requireAttached(policyData->intf6s(), "policyData->intf6s()", Operation::text);
      for (const auto& intf : policyData->intf6()) {
         updateIntfInAclConfig(aclConfig, intf, false);
      }
   } else {
      RINGLOG_TRACE_OF(Operation::name, 5, "Adding interface from intf4");
      requireAttached(policyData->intf4s(), "policyData->intf4s()", Operation::text);
      for (const auto& intf : policyData->intf4()) {
         updateIntfInAclConfig(aclConfig, intf, false);
      }
   }
}

// Turns the result of rule generation into that of the operation. A policy without rules is a
// success for the agent, because the operator may be about to add some.
template <class Operation>
Kiv::String OruPostcardPolicyAclHelper::finishRuleGeneration(const Kiv::String& status) {
   if (status.empty()) {
      return status;
   }
   RINGLOG_TRACE_OF(Operation::name, 5, "Original Return Status: {}", status);
   Kiv::String result = NoRules::isIn(status) ? Kiv::String{} : status;
   RINGLOG_TRACE_OF(Operation::name, 5, "Modified Return Status: {}", result);
   asyncOutcome(result);
   return result;
}

void OruPostcardPolicyAclHelper::asyncOutcome(const Kiv::String& status) {
   asyncOperationResultIs(PolicyMap::AsyncOperationResult{status, Kiv::System::currentTime()});
}

Kiv::String OruPostcardPolicyAclHelper::createPolicy(const PolicyDataPtr& policyData,
                                                     MatchOption matchOption) {
   RINGLOG_ENTRY();
   RINGLOG_TRACE(9, "Policy : {}, Match Type : {}", policyData->key().strDesc(),
                 static_cast<U8>(matchOption));
   requireSupportedMatchOption(matchOption, Creation::text);
   const AclConfigPtr aclConfig = createAclConfig(policyData, matchOption);
   addAttachedInterfaces<Creation>(policyData, matchOption, aclConfig);
   return finishRuleGeneration<Creation>(updateRulesInAclConfig(policyData, matchOption));
}

Kiv::String OruPostcardPolicyAclHelper::recreatePolicy(const PolicyDataPtr& policyData,
                                                       MatchOption matchOption) {
   RINGLOG_ENTRY();
   RINGLOG_TRACE(9, "Policy : {}, Match Type : {}", policyData->key().strDesc(),
                 static_cast<U8>(matchOption));
   requireSupportedMatchOption(matchOption, Recreation::text);
   // The reference keeps the old configuration for its history. It leaves the collection first,
   // because the new one has the same key. `deleteAclConfig` ends the process if there is none.
   const AclConfigPtr oldConfig = aclConfigColl(getAclConfigKey(policyData, matchOption));
   deleteAclConfig(policyData, matchOption);
   const AclConfigPtr newConfig = createAclConfig(policyData, matchOption);
   addAttachedInterfaces<Recreation>(policyData, matchOption, newConfig);
   const Kiv::String status = updateRulesInAclConfig(policyData, matchOption);
   carryHistoryOver(*oldConfig, *newConfig);
   return finishRuleGeneration<Recreation>(status);
}

// Runs after the rules are made: an override of `updateRulesInAclConfig` may set the flags, and the
// old values must win. The old texts keep their order; their keys become 0, 1, 2 and so on.
void OruPostcardPolicyAclHelper::carryHistoryOver(const PostcardTelemetryAclConfig& oldConfig,
                                                  PostcardTelemetryAclConfig& newConfig) {
   newConfig.programmedPolicyIs(oldConfig.programmedPolicy());
   RINGLOG_TRACE_OF(Recreation::name, 5, "Programmed Policy : {}", newConfig.programmedPolicy());
   newConfig.rulesClientUpdatedIs(oldConfig.rulesClientUpdated());
   RINGLOG_TRACE_OF(Recreation::name, 5, "Rules Client Updated : {}",
                    newConfig.rulesClientUpdated());
   const auto& oldStatus = oldConfig.aclConfigStatus();
   RINGLOG_TRACE_OF(Recreation::name, 5, "Number of Statuses Strings in Old Config : {}",
                    oldStatus == nullptr ? 0 : oldStatus->statusInOrders());
   if (oldStatus == nullptr) {
      return;
   }
   U32 index = 0;
   for (const auto& status : oldStatus->statusInOrder()) {
      RINGLOG_TRACE_OF(Recreation::name, 5, "Status : {} Current Index : {}", status.value(),
                       index);
      newConfig.aclConfigStatusIs()->statusInOrderIs(index, status.value());
      ++index;
      newConfig.aclConfigStatusIs()->currentIndexIs(index);
   }
}

Kiv::String OruPostcardPolicyAclHelper::commitPolicy(const PolicyDataPtr& policyData,
                                                     MatchOption matchOption) {
   RINGLOG_ENTRY();
   const AclConfigPtr aclConfig = aclConfigColl(getAclConfigKey(policyData, matchOption));
   if (aclConfig == nullptr) {
      const Kiv::String error = policyMessage(
            "Commit Policy received for a non-existent policy, Policy :", policyData->key(),
            matchOption);
      RINGLOG_TRACE(0, "Error: {}", error);
      contractBroken(FunctionText::commitPolicy, "0");
   }
   if (aclConfig->ruleByNames() == 0) {
      const Kiv::String error = NoRules::commitMessage(aclConfig->aclConfigKey());
      RINGLOG_TRACE(5, "Error: {}", error);
      asyncOutcome({});
      return {};
   }
   RINGLOG_TRACE(5, "Rules Client Updated : {}", aclConfig->rulesClientUpdated());
   const auto event = aclConfig->rulesClientUpdated() ? policyUpdate : policyCreate;
   updateRulesClientConfig(event, aclConfig, Orlix::IntfId{});
   return {};
}

Kiv::String OruPostcardPolicyAclHelper::deletePolicy(const PolicyDataPtr& policyData,
                                                     MatchOption matchOption) {
   RINGLOG_ENTRY();
   // A counted reference: `deleteAclConfig` removes the configuration from the collection.
   const AclConfigPtr aclConfig = aclConfigColl(getAclConfigKey(policyData, matchOption));
   if (aclConfig == nullptr) {
      Kiv::String error = policyMessage(
            "Delete Policy received for a non-existent policy, Policy :", policyData->key(),
            matchOption);
      RINGLOG_TRACE(0, "Error: {}", error);
      return error;
   }
   RINGLOG_TRACE(5, "Rules Client Updated : {}", aclConfig->rulesClientUpdated());
   // Posted before the deletion, because the request refers to the configuration. The reference in
   // the record keeps it alive for the rules client. A rules client that was never told needs no
   // request.
   if (aclConfig->rulesClientUpdated()) {
      updateRulesClientConfig(policyDelete, aclConfig, Orlix::IntfId{});
   }
   deleteAclConfig(policyData, matchOption);
   return {};
}

} // namespace OruPostcardTelemetry
