// `RuleAction`: what happens to the packets that a rule matches. Relies on the type framework.
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
      sampleAction = 0,  // a digest of the packet is sent to the collector
      policeAction = 1,  // the packet counts against a rate limit
      setDscpAction = 2, // the packet's DSCP is rewritten as `dscpDataAndMask` says
   };

   KIV_ENTITY(RuleAction, Kiv::Entity, "OruPostcardTelemetry::RuleAction");
   // Without `setDscpAction` in the set, this attribute has no meaning.
   KIV_ATTRIBUTE(130, DscpDataAndMask, dscpDataAndMask);
   // The actions; all of them are carried out. The set holds any byte, also a number that has no
   // enumerator; such a number has no effect and the show command prints no name for it.
   KIV_COLLECTION(131, action, Kiv::HashSet2018<Action, 1484032339>);

 public:
   // Makes an action that does nothing: the set is empty, the DSCP and its mask are 0.
   RuleAction() = default;

   // Adds every action of `other` to this object's set; the set loses none. `dscpDataAndMask` is
   // not copied: this object keeps its own. So the rules of a class, which are copies of its
   // template rule, carry `setDscpAction` with data 0 and mask 0.
   void copy(const RuleAction& other);
   // The same; `other` must not be null.
   void copy(const Pello::Ptr<const RuleAction>& other) { copy(*other); }

   // Returns the action with that number. Throws Kiv::RangeError when there is none.
   static Action ActionInstance(U32 number);
   // Returns the action with that name. Throws Kiv::ParseError when there is none.
   static Action ActionInstance(std::string_view name);
};
KIV_ENUM(RuleAction::Action, ActionInstance)

inline RuleAction::Action RuleAction::ActionInstance(U32 number) {
   return OruPostcardTelemetry::ActionInstance(number);
}
inline RuleAction::Action RuleAction::ActionInstance(std::string_view name) {
   return OruPostcardTelemetry::ActionInstance(name);
}

// Both return a new action; neither looks anything up.
Pello::Ptr<RuleAction> ruleActionFactory();
inline Pello::Ptr<RuleAction> RuleActionIs() {
   return ruleActionFactory();
}

} // namespace OruPostcardTelemetry
