// Interfaces join and leave a policy that exists: `addIntfToPolicy`, `removeIntfFromPolicy`, and
// `updateIntfInAclConfig`, through which every change of a configuration's interfaces goes. Relies
// on Naming and RulesClientRequest.
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Contract.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Helper.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Naming.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/TraceSource.h"

namespace OruPostcardTelemetry {

// What tells the two operations apart.
struct OruPostcardPolicyAclHelper::IntfChange {
   bool remove;
   std::string_view function;    // text of the operation
   std::string_view nonExistent; // messages, up to "Policy :"
   std::string_view nonCommitted;
};

void OruPostcardPolicyAclHelper::updateIntfInAclConfig(const AclConfig& aclConfig,
                                                       Orlix::IntfId intf, bool remove) {
   RINGLOG_ENTRY();
   RINGLOG_TRACE(9, "Acl Config Key : {}, Interface : {}, Remove Interface : {}",
                 aclConfig->aclConfigKey(), intf.stringValue(), remove);
   if (remove) {
      RINGLOG_TRACE(5, "Removing {} from aclConfig->policyIntf()", intf.stringValue());
      aclConfig->policyIntfDel(intf);
   } else {
      RINGLOG_TRACE(5, "Adding {} to aclConfig->policyIntf()", intf.stringValue());
      aclConfig->policyIntfIs(intf);
   }
}

Kiv::String OruPostcardPolicyAclHelper::addIntfToPolicy(const PolicyData& policyData,
                                                        Orlix::IntfId intf,
                                                        Orlix::IntfId logicalIntf,
                                                        L3::VrfName vrfName,
                                                        MatchOption matchOption) {
   RINGLOG_ENTRY();
   RINGLOG_TRACE(9,
                 "Policy : {}, Match Type : {}, Interface : {}, Logical Interface : {}, "
                 "VRF Name : {}, Match Type : {}",
                 policyData->key().strDesc(), static_cast<U8>(matchOption), intf.stringValue(),
                 logicalIntf.stringValue(), vrfName, static_cast<U8>(matchOption));
   static constexpr IntfChange add{
         false, FunctionText::addIntfToPolicy,
         "Add Interface to Policy received for a non-existent policy, Policy :",
         "Add Interface to Policy received for a non committed policy, "
         "aborting further processing,  Policy :"};
   return changeIntf(add, policyData, intf, matchOption);
}

Kiv::String OruPostcardPolicyAclHelper::removeIntfFromPolicy(const PolicyData& policyData,
                                                             Orlix::IntfId intf,
                                                             Orlix::IntfId logicalIntf,
                                                             L3::VrfName vrfName,
                                                             MatchOption matchOption) {
   RINGLOG_ENTRY();
   RINGLOG_TRACE(9,
                 "Policy : {}, Match Type : {}, Interface : {}, Logical Interface : {}, "
                 "VRF Name : {}, Match Type : {}",
                 policyData->key().strDesc(), static_cast<U8>(matchOption), intf.stringValue(),
                 logicalIntf.stringValue(), vrfName, static_cast<U8>(matchOption));
   static constexpr IntfChange removal{
         true, FunctionText::removeIntfFromPolicy,
         "Remove Interface from Policy received for a non-existent policy, Policy :",
         "Remove Interface from Policy received for a non committed policy, "
         "aborting further processing,  Policy :"};
   return changeIntf(removal, policyData, intf, matchOption);
}

Kiv::String OruPostcardPolicyAclHelper::changeIntf(const IntfChange& change,
                                                   const PolicyData& policyData, Orlix::IntfId intf,
                                                   MatchOption matchOption) {
   const AclConfig aclConfig = aclConfigColl(getAclConfigKey(policyData, matchOption));
   if (aclConfig == nullptr) {
      const Kiv::String error = policyMessage(change.nonExistent, policyData->key(), matchOption);
      RINGLOG_TRACE(0, "Error: {}", error);
      contractBroken(change.function, "0");
   }
   if (aclConfig->ruleByNames() == 0) {
      // Such a configuration keeps the interfaces with which it was built.
      const Kiv::String error =
            Kiv::String::join({"No rules configured in policy ", " ", aclConfig->aclConfigKey()});
      RINGLOG_TRACE(5, "Error: {}", error);
      asyncOutcome({});
      return {};
   }
   updateIntfInAclConfig(aclConfig, intf, change.remove);
   RINGLOG_TRACE(5, "Programmed Policy : {}", aclConfig->programmedPolicy());
   if (!aclConfig->programmedPolicy()) {
      return uncommittedIntfChange(change, policyData, matchOption, aclConfig);
   }
   updateRulesClientConfig(policyIntfUpdate, aclConfig, intf);
   return {};
}

// The change is kept but not passed on. Once the rules client has reported on the configuration,
// its latest text tells the operator more than ours.
Kiv::String OruPostcardPolicyAclHelper::uncommittedIntfChange(const IntfChange& change,
                                                              const PolicyData& policyData,
                                                              MatchOption matchOption,
                                                              const AclConfig& aclConfig) {
   Kiv::String result = policyMessage(change.nonCommitted, policyData->key(), matchOption);
   RINGLOG_TRACE(0, "Error: {}", result);
   const auto& status = aclConfig->aclConfigStatus();
   if (const U32 currentIndex = status->currentIndex(); currentIndex != 0) {
      if (change.remove) {
         RINGLOG_TRACE(5, "currentIndex : {}", currentIndex);
      }
      result = status->statusInOrder(currentIndex - 1);
   }
   asyncOutcome(result);
   return result;
}

} // namespace OruPostcardTelemetry
