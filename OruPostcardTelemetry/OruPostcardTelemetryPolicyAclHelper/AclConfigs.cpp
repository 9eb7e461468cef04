// The ACL configuration of a policy in one address family: its key (`getAclConfigKey`), its
// creation (`createAclConfig`) and its deletion (`deleteAclConfig`). Relies on Naming.
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Contract.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Helper.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Naming.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/TraceSource.h"

namespace OruPostcardTelemetry {

using HelperTrace::traceSource;

Pello::String OruPostcardPolicyAclHelper::getAclConfigKey(const PolicyDataPtr& policyData,
                                                          MatchOption matchOption) {
   RINGLOG_ENTRY();
   RINGLOG_TRACE(9, "Policy : {}, Match Option : {}", policyData->key().strDesc(), matchOption);
   const Acl::AclType aclType = matchOptionToAclType(matchOption);
   // The name and not `strDesc`: the scope is no part of the key.
   RINGLOG_TRACE(5, "Policy : {}, Acl Type : {}", policyData->key().name(), aclType);
   Pello::String key = aclName(policyData->key().name(), aclType);
   RINGLOG_TRACE(5, "Acl Config Key : {}", key);
   return key;
}

OruPostcardPolicyAclHelper::AclConfigPtr
OruPostcardPolicyAclHelper::createAclConfig(const PolicyDataPtr& policyData,
                                            MatchOption matchOption) {
   RINGLOG_ENTRY();
   const Pello::String key = getAclConfigKey(policyData, matchOption);
   // Checked here, because `aclConfigCollIs` would return the existing configuration without a
   // word.
   if (aclConfigColl(key) != nullptr) {
      const Kiv::String error =
            policyMessage("Acl Config already exists for Policy :", policyData->key(), matchOption);
      RINGLOG_TRACE(0, "Error: {}", error);
      contractBroken(FunctionText::createAclConfig, "0");
   }
   AclConfigPtr aclConfig = aclConfigCollIs(key);
   aclConfig->aclTypeIs(matchOptionToAclType(matchOption));
   aclConfig->aclConfigStatusIs();
   return aclConfig;
}

void OruPostcardPolicyAclHelper::deleteAclConfig(const PolicyDataPtr& policyData,
                                                 MatchOption matchOption) {
   RINGLOG_ENTRY();
   const Pello::String key = getAclConfigKey(policyData, matchOption);
   if (aclConfigColl(key) == nullptr) {
      const Kiv::String error = policyMessage(
            "Acl Config does not exists for Policy :", policyData->key(), matchOption);
      RINGLOG_TRACE(0, "Error : {}",
                    error); // unlike at creation, a blank before the colon: log filters rely on it
      contractBroken(FunctionText::deleteAclConfig, "0");
   }
   aclConfigCollDel(key);
}

} // namespace OruPostcardTelemetry
