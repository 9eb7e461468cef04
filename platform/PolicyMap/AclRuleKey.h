// `AclRuleKey`: names one rule of one class of a policy, in one address family. Relies on the value
// support of the framework.
#pragma once

#include "Kiv/String.h"
#include "Kiv/Value.h"
#include "PolicyMap/ClassMapMatchOption.h"
#include "PolicyMap/PolicyMapSmKey.h"

#include <compare>
#include <tuple>
#include <utility>

namespace PolicyMap {

// Unique among the rules of all policies: every part belongs to the key.
class AclRuleKey : public Kiv::Value<AclRuleKey> {
   KIV_VALUE(AclRuleKey, "PolicyMap::AclRuleKey");
   KIV_FIELD(1, PolicyMapSmKey, policyMapKey);
   KIV_FIELD(2, Pello::String, className); // the key in the policy's `classData`
   KIV_FIELD(3, Pello::String, aclName);   // the key in the class's `aclStructuredFilter`
   KIV_FIELD(4, U32, sequence);            // of the rule in its ACL; postcard telemetry has only 0
   KIV_FIELD(5, ClassMapMatchOption, matchOption);

 public:
   // The key of no rule: every name is empty, every number 0.
   AclRuleKey() = default;
   AclRuleKey(PolicyMapSmKey policyMapKey, Pello::String className, Pello::String aclName,
              U32 sequence, ClassMapMatchOption matchOption)
      : policyMapKey_{std::move(policyMapKey)},
        className_{std::move(className)},
        aclName_{std::move(aclName)},
        sequence_{sequence},
        matchOption_{matchOption} {}

   // Attribute by attribute, in declaration order.
   friend std::strong_ordering operator<=>(const AclRuleKey& a, const AclRuleKey& b) {
      const auto tied = [](const AclRuleKey& key) {
         return std::tie(key.policyMapKey_, key.className_, key.aclName_, key.sequence_,
                         key.matchOption_);
      };
      return tied(a) <=> tied(b);
   }
};

} // namespace PolicyMap
