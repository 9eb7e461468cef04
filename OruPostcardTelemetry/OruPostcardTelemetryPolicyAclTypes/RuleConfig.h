// `RuleConfig`: one rule of an ACL, a filter and an action under a name.
#pragma once

#include "Kiv/Entity.h"
#include "Kiv/String.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/RuleAction.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/RuleFilter.h"

namespace OruPostcardTelemetry {

class RuleConfig : public Kiv::Entity {
   KIV_ENTITY(RuleConfig, Kiv::Entity, "OruPostcardTelemetry::RuleConfig");
   KIV_CONSTANT(130, Pello::String, name); // unique in its ACL
   KIV_CHILD(131, RuleFilter, ruleFilter); // null until asked for
   KIV_CHILD(132, RuleAction, ruleAction); // null until asked for

 public:
   explicit RuleConfig(Pello::String name) : name_{std::move(name)} {}

   // Merges the filter and the action of `other` into this rule's own, made when there are none; a
   // part that `other` has not stays as it is here. The name stays.
   void copy(const RuleConfig& other);
   // The same; `other` must not be null.
   void copy(const Pello::Ptr<const RuleConfig>& other) { copy(*other); }
};

// Makes a new rule without filter and action.
Pello::Ptr<RuleConfig> ruleConfigFactory(const Pello::String& name);
inline Pello::Ptr<RuleConfig> RuleConfigIs(const Pello::String& name) {
   return ruleConfigFactory(name);
}

} // namespace OruPostcardTelemetry
