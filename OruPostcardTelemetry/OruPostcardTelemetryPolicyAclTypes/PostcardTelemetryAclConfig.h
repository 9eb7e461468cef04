// `PostcardTelemetryAclConfig`: one ACL, made for one policy and one address family. Its rules
// stand in two tables that know nothing of each other: by name, which makes and owns them, and by
// index, the order in which hardware matches them. Whoever adds a rule enters it in both.
#pragma once

#include "Acl/AclType.h"
#include "Kiv/Entity.h"
#include "Kiv/HashMap2018.h"
#include "Kiv/RbTreeMap.h"
#include "Kiv/String.h"
#include "Orlix/IntfId.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/PostcardTelemetryAclConfigStatus.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/RuleConfig.h"

namespace OruPostcardTelemetry {

class PostcardTelemetryAclConfig : public Kiv::Entity {
   KIV_ENTITY(PostcardTelemetryAclConfig, Kiv::Entity,
              "OruPostcardTelemetry::PostcardTelemetryAclConfig");
   KIV_CONSTANT(130, Pello::String, aclConfigKey); // its key in the helper's collection
   KIV_ATTRIBUTE(131, Acl::AclType, aclType);
   KIV_COLLECTION(132, ruleByName,
                  Kiv::HashMap2018<Pello::String, RuleConfig, &RuleConfig::name, 158383795>);
   KIV_COLLECTION(133, ruleByIndex, Kiv::RbTreeMap<U32, Pello::Ptr<RuleConfig>>);
   // The interfaces to which the policy is applied.
   KIV_COLLECTION(134, policyIntf, Kiv::HashSet2018<Orlix::IntfId, 0x485a4f7b, true>);
   KIV_ATTRIBUTE(135, bool, programmedPolicy);   // the rules client's latest answer was success
   KIV_ATTRIBUTE(136, bool, rulesClientUpdated); // the rules client has been told of this ACL
   KIV_CHILD(137, PostcardTelemetryAclConfigStatus, aclConfigStatus); // null until asked for

 public:
   using KivRuleByIndex = Kiv::RbTreeMap<U32, Pello::Ptr<RuleConfig>>::Node;

   explicit PostcardTelemetryAclConfig(Pello::String aclConfigKey)
      : aclConfigKey_{std::move(aclConfigKey)} {}
   // Enters `rule` under `index` in place of another one; null removes the entry. `ruleByName` is
   // left as it is.
   void ruleByIndexIs(U32 index, const Pello::Ptr<RuleConfig>& rule) {
      ruleByIndexIs<>(index, rule);
   }
   // The table by name goes first. The rules themselves then go in the order of their indexes,
   // which is the order in which they lie in memory, and that memory is used again in this order.
   ~PostcardTelemetryAclConfig() override { ruleByNameDelAll(); }
};

// Makes a new, empty ACL; looks nothing up.
Pello::Ptr<PostcardTelemetryAclConfig>
postcardTelemetryAclConfigFactory(const Pello::String& aclConfigKey);
inline Pello::Ptr<PostcardTelemetryAclConfig>
PostcardTelemetryAclConfigIs(const Pello::String& aclConfigKey) {
   return postcardTelemetryAclConfigFactory(aclConfigKey);
}

} // namespace OruPostcardTelemetry
