// `addIntfToPolicy` and `removeIntfFromPolicy`: an interface joins or leaves a policy that exists.
// `updateIntfInAclConfig`: the only function that changes a configuration's interfaces. Relies on
// Naming and RulesClientRequest.
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Contract.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Helper.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Naming.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/TraceSource.h"

namespace OruPostcardTelemetry {

using HelperTrace::traceSource;

namespace {

// The differences between the two operations: the direction, the name in traces and assertions, and
// the messages up to "Policy :".
struct Addition {
   static constexpr bool remove = false;
   static constexpr const char* name = "addIntfToPolicy";
   static constexpr std::string_view text = FunctionText::addIntfToPolicy;
   static constexpr std::string_view nonExistent =
         "Add Interface to Policy received for a non-existent policy, Policy :";
   static constexpr std::string_view nonCommitted =
         "Add Interface to Policy received for a non committed policy, "
         "aborting further processing,  Policy :";
};
struct Removal {
   static constexpr bool remove = true;
   static constexpr const char* name = "removeIntfFromPolicy";
   static constexpr std::string_view text = FunctionText::removeIntfFromPolicy;
   static constexpr std::string_view nonExistent =
         "Remove Interface from Policy received for a non-existent policy, Policy :";
   static constexpr std::string_view nonCommitted =
         "Remove Interface from Policy received for a non committed policy, "
         "aborting further processing,  Policy :";
};

} // namespace

void OruPostcardPolicyAclHelper::updateIntfInAclConfig(const AclConfigPtr& aclConfig,
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

Kiv::String OruPostcardPolicyAclHelper::addIntfToPolicy(const PolicyDataPtr& policyData,
                                                        Orlix::IntfId intf,
                                                        Orlix::IntfId logicalIntf,
                                                        L3::VrfName vrfName,
                                                        MatchOption matchOption) {
   return changeIntf<Addition>(policyData, intf, logicalIntf, vrfName, matchOption);
}

Kiv::String OruPostcardPolicyAclHelper::removeIntfFromPolicy(const PolicyDataPtr& policyData,
                                                             Orlix::IntfId intf,
                                                             Orlix::IntfId logicalIntf,
                                                             L3::VrfName vrfName,
                                                             MatchOption matchOption) {
   return changeIntf<Removal>(policyData, intf, logicalIntf, vrfName, matchOption);
}

template <class Change>
Kiv::String OruPostcardPolicyAclHelper::changeIntf(const PolicyDataPtr& policyData,
                                                   Orlix::IntfId intf, Orlix::IntfId logicalIntf,
                                                   const L3::VrfName& vrfName,
                                                   MatchOption matchOption) {
   // `RINGLOG_ENTRY` would name this function. Texts of traces are an interface, so the match type
   // stays in the next one twice.
   RINGLOG_TRACE_OF(Change::name, 8, "");
   RINGLOG_TRACE_OF(Change::name, 9,
                    "Policy : {}, Match Type : {}, Interface : {}, Logical Interface : {}, "
                    "VRF Name : {}, Match Type : {}",
                    policyData->key().strDesc(), static_cast<U8>(matchOption), intf.stringValue(),
                    logicalIntf.stringValue(), vrfName, static_cast<U8>(matchOption));
   const AclConfigPtr aclConfig = aclConfigColl(getAclConfigKey(policyData, matchOption));
   if (aclConfig == nullptr) {
      const Kiv::String error = policyMessage(Change::nonExistent, policyData->key(), matchOption);
      RINGLOG_TRACE_OF(Change::name, 0, "Error: {}", error);
      contractBroken(Change::text, "0");
   }
   if (aclConfig->ruleByNames() == 0) {
      // The configuration is not changed: without rules it has nothing to apply to an interface,
      // and building it anew takes the interfaces from the policy.
      const Kiv::String error = NoRules::message(aclConfig->aclConfigKey());
      RINGLOG_TRACE_OF(Change::name, 5, "Error: {}", error);
      asyncOutcome({});
      return {};
   }
   updateIntfInAclConfig(aclConfig, intf, Change::remove);
   RINGLOG_TRACE_OF(Change::name, 5, "Programmed Policy : {}", aclConfig->programmedPolicy());
   if (!aclConfig->programmedPolicy()) {
      return uncommittedIntfChange<Change>(policyData, matchOption, aclConfig);
   }
   updateRulesClientConfig(policyIntfUpdate, aclConfig, intf);
   return {};
}

// The change stays in the configuration and reaches the rules client with the next commit. The
// operator reads the latest text of the rules client where there is one, because it says why the
// policy is not programmed.
template <class Change>
Kiv::String OruPostcardPolicyAclHelper::uncommittedIntfChange(const PolicyDataPtr& policyData,
                                                              MatchOption matchOption,
                                                              const AclConfigPtr& aclConfig) {
   Kiv::String result = policyMessage(Change::nonCommitted, policyData->key(), matchOption);
   RINGLOG_TRACE_OF(Change::name, 0, "Error: {}", result);
   const auto& status = aclConfig->aclConfigStatus();
   if (const U32 currentIndex = status == nullptr ? 0 : status->currentIndex(); currentIndex != 0) {
      if constexpr (Change::remove) {
         RINGLOG_TRACE_OF(Change::name, 5, "currentIndex : {}", currentIndex);
      }
      result = status->statusInOrder(currentIndex - 1);
   }
   asyncOutcome(result);
   return result;
}

} // namespace OruPostcardTelemetry
