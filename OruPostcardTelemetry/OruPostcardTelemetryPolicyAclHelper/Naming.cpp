#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Naming.h"

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Contract.h"

namespace OruPostcardTelemetry {

Acl::AclType matchOptionToAclType(PolicyMap::ClassMapMatchOption option) {
   if (option != PolicyMap::matchIpAccessGroup() && option != PolicyMap::matchIpv6AccessGroup()) {
      contractBroken(FunctionText::matchOptionToAclType, R"(false && "unsupported match option")");
   }
   return static_cast<Acl::AclType>(option);
}

Pello::String aclName(Pello::String name, Acl::AclType aclType) {
   // The generic text of an enumerator, without its single quotes.
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

Kiv::String NoRules::message(std::string_view name) {
   return Kiv::String::join({text, "  ", name});
}

Kiv::String NoRules::commitMessage(std::string_view name) {
   return Kiv::String::join({text, " ", name});
}

} // namespace OruPostcardTelemetry
