// `RulePriorityData`: in which order the classes of a policy match, for one address family.
#pragma once

#include "Acl/AclType.h"
#include "Kiv/Entity.h"
#include "Kiv/RbTreeMap.h"
#include "Kiv/Value.h"
#include "PolicyMap/AclRuleKey.h"

#include <compare>

namespace PolicyMap {

// The place of a rule among those of its policy: the lowest value matches first.
class RulePriority : public Kiv::Value<RulePriority> {
   KIV_VALUE(RulePriority, "PolicyMap::RulePriority");
   KIV_FIELD(1, U32, value);

 public:
   RulePriority() = default;
   explicit RulePriority(U32 value) : value_{value} {}
   KIV_TEXT_CONSTRUCTORS(RulePriority);

   friend auto operator<=>(const RulePriority& a, const RulePriority& b) {
      return a.value_ <=> b.value_;
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
