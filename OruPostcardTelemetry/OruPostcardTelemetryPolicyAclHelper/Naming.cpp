#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Naming.h"

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Contract.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Helper.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/TraceSource.h"

namespace OruPostcardTelemetry {

Acl::AclType matchOptionToAclType(PolicyMap::ClassMapMatchOption option) {
   if (option != PolicyMap::matchIpAccessGroup() && option != PolicyMap::matchIpv6AccessGroup()) {
      contractBroken(FunctionText::matchOptionToAclType, R"(false && "unsupported match option")");
   }
   return static_cast<Acl::AclType>(option);
}

Pello::String aclName(Pello::String name, Acl::AclType aclType) {
   const std::string quoted = Kiv::valueText(aclType);
   const std::string_view typeName = std::string_view{quoted}.substr(1, quoted.size() - 2);
   return Pello::String::join({name, "-", typeName});
}

Pello::String ruleName(Pello::String name, Acl::AclType aclType) {
   return aclName(std::move(name), aclType);
}

Kiv::String policyMessage(std::string_view text, const PolicyMap::PolicyMapSmKey& key,
                          PolicyMap::ClassMapMatchOption matchOption) {
   return Kiv::String::join({text, " ", key.strDesc(), " ", "Match Option :", " ",
                             std::to_string(static_cast<U8>(matchOption))});
}

Pello::String OruPostcardPolicyAclHelper::getAclConfigKey(const PolicyData& policyData,
                                                          MatchOption matchOption) {
   RINGLOG_ENTRY();
   RINGLOG_TRACE(9, "Policy : {}, Match Option : {}", policyData->key().strDesc(), matchOption);
   const Acl::AclType aclType = matchOptionToAclType(matchOption);
   RINGLOG_TRACE(5, "Policy : {}, Acl Type : {}", policyData->key().name(), aclType);
   Pello::String key = aclName(policyData->key().name(), aclType);
   RINGLOG_TRACE(5, "Acl Config Key : {}", key);
   return key;
}

OruPostcardPolicyAclHelper::AclConfig
OruPostcardPolicyAclHelper::createAclConfig(const PolicyData& policyData, MatchOption matchOption) {
   RINGLOG_ENTRY();
   const Pello::String key = getAclConfigKey(policyData, matchOption);
   if (aclConfigColl(key) != nullptr) {
      const Kiv::String error =
            policyMessage("Acl Config already exists for Policy :", policyData->key(), matchOption);
      RINGLOG_TRACE(0, "Error: {}", error);
      contractBroken(FunctionText::createAclConfig, "0");
   }
   AclConfig aclConfig = aclConfigCollIs(key);
   aclConfig->aclTypeIs(matchOptionToAclType(matchOption));
   aclConfig->aclConfigStatusIs();
   return aclConfig;
}

void OruPostcardPolicyAclHelper::deleteAclConfig(const PolicyData& policyData,
                                                 MatchOption matchOption) {
   RINGLOG_ENTRY();
   const Pello::String key = getAclConfigKey(policyData, matchOption);
   if (aclConfigColl(key) == nullptr) {
      const Kiv::String error = policyMessage(
            "Acl Config does not exists for Policy :", policyData->key(), matchOption);
      RINGLOG_TRACE(0, "Error : {}", error); // log filters tell the two errors apart by the blank
      contractBroken(FunctionText::deleteAclConfig, "0");
   }
   aclConfigCollDel(key);
}

} // namespace OruPostcardTelemetry
