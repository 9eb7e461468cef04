// `RulePriorityData`: the order in which the rules of a policy's classes match, in one address
// family. Relies on the entities of the framework.
#pragma once

#include "Acl/AclType.h"
#include "Kiv/Entity.h"
#include "Kiv/RbTreeMap.h"
#include "Kiv/Value.h"
#include "PolicyMap/AclRuleKey.h"

#include <compare>

namespace PolicyMap {

// The place of a rule among those of its policy. The rule of the lowest value is tried first;
// values need not be consecutive.
class RulePriority : public Kiv::Value<RulePriority> {
   KIV_VALUE(RulePriority, "PolicyMap::RulePriority");
   KIV_FIELD(1, U32, value);

 public:
   // The priority 0, which no other one comes before.
   RulePriority() = default;
   explicit RulePriority(U32 value) : value_{value} {}
   // From decimal digits. Throws Kiv::ParseError.
   KIV_TEXT_CONSTRUCTORS(RulePriority);

   friend auto operator<=>(const RulePriority& a, const RulePriority& b) {
      return a.value_ <=> b.value_;
   }
};

// A list of rules that is searched both by priority and by rule.
class RulePriorityData : public Kiv::Entity {
   KIV_ENTITY(RulePriorityData, Kiv::Entity, "PolicyMap::RulePriorityData");
   KIV_CONSTANT(130, Acl::AclType, aclType); // the key in its policy
   // The same pairs in both collections. Use `entryIs` to add one: the setters of a single
   // collection (`ruleIs`, `priorityIs`) do not change the other.
   KIV_COLLECTION(131, rule, Kiv::RbTreeMap<RulePriority, AclRuleKey>);
   KIV_COLLECTION(132, priority, Kiv::RbTreeMap<AclRuleKey, RulePriority>);

 public:
   explicit RulePriorityData(Acl::AclType aclType) : aclType_{aclType} {}

   // Gives the rule `key` the priority `at`. If it had another priority, that one becomes free. If
   // another rule had the priority `at`, that rule is removed from both collections.
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
