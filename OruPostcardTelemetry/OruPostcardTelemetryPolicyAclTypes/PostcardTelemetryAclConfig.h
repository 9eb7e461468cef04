// `PostcardTelemetryAclConfig`: one ACL configuration, made for one policy and one address family.
// Two collections hold its rules: `ruleByName` makes and owns them; `ruleByIndex` refers to them in
// the order in which hardware matches them. Nothing keeps the two in step: a function that adds a
// rule enters it in both. Removing a rule by name leaves it under its index; the counted reference
// there keeps it alive. Rules under an index therefore need not have a name entry. Relies on
// `RuleConfig` and `PostcardTelemetryAclConfigStatus`.
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
   KIV_CONSTANT(130, Pello::String, aclConfigKey); // the key in the helper's collection
   KIV_ATTRIBUTE(131, Acl::AclType, aclType);      // the address family
   // `ruleByNameIs(name)` returns the rule of that name, or makes one without filter and action.
   KIV_COLLECTION(132, ruleByName,
                  Kiv::HashMap2018<Pello::String, RuleConfig, &RuleConfig::name, 158383795,
                                   Kiv::TableKind::large>);
   // Ascending indexes are the order of matching. Entering null removes an entry.
   KIV_RULED_COLLECTION(133, ruleByIndex, Kiv::RbTreeMap<U32, Pello::Ptr<RuleConfig>>);
   // The interfaces to which the policy is applied. The seed of the hash differs from process to
   // process, and so does the order in which the interfaces are walked.
   KIV_COLLECTION(134, policyIntf, Kiv::HashSet2018<Orlix::IntfId, 0x485a4f7b, true>);
   // Whether the latest answer of the rules client was a success. False before the first answer.
   KIV_ATTRIBUTE(135, bool, programmedPolicy);
   // Whether a request about this configuration has been posted, so that the rules client knows it.
   // The helper never sets it back; `recreatePolicy` hands the value on to the new configuration.
   KIV_ATTRIBUTE(136, bool, rulesClientUpdated);
   // The rules client's answers. Null until `aclConfigStatusIs()` makes it: no answer yet.
   KIV_CHILD(137, PostcardTelemetryAclConfigStatus, aclConfigStatus);

 public:
   using KivRuleByIndex = Kiv::RbTreeMap<U32, Pello::Ptr<RuleConfig>>::Node;

   // Makes a configuration without rules, interfaces and history; both flags are false.
   explicit PostcardTelemetryAclConfig(Pello::String aclConfigKey)
      : aclConfigKey_{std::move(aclConfigKey)} {}
   // Enters `rule` under `index`, in place of the rule that is there; null removes the entry. Does
   // not change `ruleByName`. The only function of that name and no template, so that its address
   // can be taken.
   void ruleByIndexIs(U32 index, const Pello::Ptr<RuleConfig>& rule) {
      ruleByIndex_.is(Kiv::collectionReport<ruleByIndexId>(*this), index, rule);
   }
   // Empties `ruleByName` first, so that the rules are freed in ascending order of their indexes.
   // They were allocated in that order, and the allocator hands freed memory out in the same order.
   ~PostcardTelemetryAclConfig() override { ruleByNameDelAll(); }
};

// Both return a new configuration; neither looks anything up.
Pello::Ptr<PostcardTelemetryAclConfig>
postcardTelemetryAclConfigFactory(const Pello::String& aclConfigKey);
inline Pello::Ptr<PostcardTelemetryAclConfig>
PostcardTelemetryAclConfigIs(const Pello::String& aclConfigKey) {
   return postcardTelemetryAclConfigFactory(aclConfigKey);
}

} // namespace OruPostcardTelemetry
