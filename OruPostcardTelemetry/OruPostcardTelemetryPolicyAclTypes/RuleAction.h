// `RuleAction`: what happens to the packets that a rule matches.
#pragma once

#include "Kiv/Entity.h"
#include "Kiv/Enumeration.h"
#include "Kiv/HashMap2018.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/DscpDataAndMask.h"

#include <string_view>

namespace OruPostcardTelemetry {

class RuleAction : public Kiv::Entity {
 public:
   enum Action : U8 {
      sampleAction = 0,  // a digest of the packet goes to the collector
      policeAction = 1,  // the packet counts against a rate
      setDscpAction = 2, // the packet's DSCP becomes `dscpDataAndMask`
   };

   KIV_ENTITY(RuleAction, Kiv::Entity, "OruPostcardTelemetry::RuleAction");
   KIV_ATTRIBUTE(130, DscpDataAndMask,
                 dscpDataAndMask); // means something with `setDscpAction` only
   // A set of enumerators is one word: it holds numbers up to 63, and RangeError refuses others.
   KIV_COLLECTION(131, action, Kiv::HashSet2018<Action, 1484032339>);

 public:
   RuleAction() = default;

   // Adds the actions of `other` to this one's. The DSCP is not copied: it belongs to the rule.
   void copy(const RuleAction& other);
   // The same; `other` must not be null.
   void copy(const Pello::Ptr<const RuleAction>& other) { copy(*other); }

   // The action of a number; throws Kiv::RangeError when none has it.
   static Action ActionInstance(U32 number);
   // The action of a name; throws Kiv::ParseError when none has it.
   static Action ActionInstance(std::string_view name);
};
KIV_ENUM(RuleAction::Action, ActionInstance)

inline RuleAction::Action RuleAction::ActionInstance(U32 number) {
   return OruPostcardTelemetry::ActionInstance(number);
}
inline RuleAction::Action RuleAction::ActionInstance(std::string_view name) {
   return OruPostcardTelemetry::ActionInstance(name);
}

// Makes a new action with an empty set.
Pello::Ptr<RuleAction> ruleActionFactory();
inline Pello::Ptr<RuleAction> RuleActionIs() {
   return ruleActionFactory();
}

} // namespace OruPostcardTelemetry
