// `RulePriorityData`: in which order the classes of a policy match, for one address family.
#pragma once

#include "Acl/AclType.h"
#include "Kiv/Entity.h"
#include "Kiv/RbTreeMap.h"
#include "Kiv/Value.h"
#include "PolicyMap/ClassMapMatchOption.h"
#include "PolicyMap/PolicyMapSmKey.h"

#include <compare>
#include <tuple>

namespace PolicyMap {

// The place of a rule among those of its policy: the lowest value matches first.
class RulePriority : public Kiv::Value<RulePriority> {
   KIV_VALUE(RulePriority, "PolicyMap::RulePriority");
   KIV_FIELD(1, U32, value);

 public:
   RulePriority() = default;
   explicit RulePriority(U32 value) : value_{value} {}
   explicit RulePriority(std::string_view text)
      : RulePriority{Kiv::parseValue<RulePriority>(text)} {}

   friend auto operator<=>(const RulePriority& a, const RulePriority& b) {
      return a.value_ <=> b.value_;
   }
};

// Which rule of which class is meant.
class AclRuleKey : public Kiv::Value<AclRuleKey> {
   KIV_VALUE(AclRuleKey, "PolicyMap::AclRuleKey");
   KIV_FIELD(1, PolicyMapSmKey, policyMapKey);
   KIV_FIELD(2, Pello::String, className);
   KIV_FIELD(3, Pello::String, aclName); // under it the class keeps its structured filters
   KIV_FIELD(4, U32, sequence);          // of the rule in its ACL
   KIV_FIELD(5, ClassMapMatchOption, matchOption);

 public:
   AclRuleKey() = default;
   AclRuleKey(PolicyMapSmKey policyMapKey, Pello::String className, Pello::String aclName,
              U32 sequence, ClassMapMatchOption matchOption)
      : policyMapKey_{std::move(policyMapKey)},
        className_{std::move(className)},
        aclName_{std::move(aclName)},
        sequence_{sequence},
        matchOption_{matchOption} {}
   explicit AclRuleKey(std::string_view text) : AclRuleKey{Kiv::parseValue<AclRuleKey>(text)} {}

   // Attribute by attribute, in declaration order.
   friend std::strong_ordering operator<=>(const AclRuleKey& a, const AclRuleKey& b) {
      const auto tied = [](const AclRuleKey& key) {
         return std::tie(key.policyMapKey_, key.className_, key.aclName_, key.sequence_,
                         key.matchOption_);
      };
      return tied(a) <=> tied(b);
   }
};

class RulePriorityData : public Kiv::Entity {
   KIV_ENTITY(RulePriorityData, Kiv::Entity, "PolicyMap::RulePriorityData");
   KIV_CONSTANT(130, Acl::AclType, aclType);
   // The same entries from both sides; `entryIs` keeps them in step.
   KIV_COLLECTION(131, rule, Kiv::RbTreeMap<RulePriority, AclRuleKey>);
   KIV_COLLECTION(132, priority, Kiv::RbTreeMap<AclRuleKey, RulePriority>);

 public:
   explicit RulePriorityData(Acl::AclType aclType) : aclType_{aclType} {}

   // Gives `key` the priority `at`, in place of the priority that it had and of the rule that had
   // this one.
   void entryIs(RulePriority at, AclRuleKey key) {
      if (priorityHas(key)) {
         ruleDel(priority(key));
      }
      if (ruleHas(at)) {
         priorityDel(rule(at));
      }
      ruleIs(at, key);
      priorityIs(key, at);
   }
};

} // namespace PolicyMap
