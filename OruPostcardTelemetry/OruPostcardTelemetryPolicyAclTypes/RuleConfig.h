// `RuleConfig`: one rule of an ACL: a filter, an action, and the rule's name. Relies on
// `RuleFilter` and `RuleAction`.
#pragma once

#include "Kiv/Entity.h"
#include "Kiv/String.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/RuleAction.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/RuleFilter.h"

namespace OruPostcardTelemetry {

class RuleConfig : public Kiv::Entity {
   KIV_ENTITY(RuleConfig, Kiv::Entity, "OruPostcardTelemetry::RuleConfig");
   KIV_CONSTANT(130, Pello::String, name); // unique in its ACL
   KIV_CHILD(131, RuleFilter, ruleFilter); // null until `ruleFilterIs()` makes it
   KIV_CHILD(132, RuleAction, ruleAction); // null until `ruleActionIs()` makes it

 public:
   // Makes a rule without filter and action.
   explicit RuleConfig(Pello::String name) : name_{std::move(name)} {}

   // Merges the filter and the action of `other` into those of this rule, as `RuleFilter::copy` and
   // `RuleAction::copy` do; makes a filter or action that this rule lacks. What `other` lacks is
   // left as it is here. The name is never copied.
   void copy(const RuleConfig& other);
   // The same; `other` must not be null.
   void copy(const Pello::Ptr<const RuleConfig>& other) { copy(*other); }
};

// Both return a new rule; neither looks anything up.
Pello::Ptr<RuleConfig> ruleConfigFactory(const Pello::String& name);
inline Pello::Ptr<RuleConfig> RuleConfigIs(const Pello::String& name) {
   return ruleConfigFactory(name);
}

} // namespace OruPostcardTelemetry
