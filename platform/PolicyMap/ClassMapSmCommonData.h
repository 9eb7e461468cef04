// `ClassMapSmCommonData`: a class map, as far as all features share it: its name and its actions.
#pragma once

#include "Kiv/Entity.h"
#include "Kiv/HashMap2018.h"
#include "Kiv/String.h"
#include "PolicyMap/Action.h"

namespace PolicyMap {

class ClassMapSmCommonData : public Kiv::Entity {
   KIV_ENTITY(ClassMapSmCommonData, Kiv::Entity, "PolicyMap::ClassMapSmCommonData");
   KIV_CONSTANT(130, Pello::String, name);

   using ActionMap = Kiv::HashMap2018<ActionType, Action, &Action::actionType, 0x6d0c2f5b>;
   ActionMap action_;

 public:
   explicit ClassMapSmCommonData(Pello::String name) : name_{std::move(name)} {}

   // The actions by their type. Made elsewhere, because a type may have a class of its own.
   KIV_ROW(131, action, collection, ActionMap)
   const ActionMap& action() const { return action_; }
   Pello::Ptr<Action> action(ActionType type) const { return action_.get(type); }
   bool actionHas(ActionType type) const { return action_.has(type); }
   std::size_t actions() const { return action_.size(); }
   // Takes `action` (never null) in place of another one of its type.
   void actionIs(const Pello::Ptr<Action>& action) {
      action_.put(Kiv::collectionReport<131>(*this), action);
   }
   Pello::Ptr<Action> actionDel(ActionType type) {
      return action_.del(Kiv::collectionReport<131>(*this), type);
   }
   void actionDelAll() { action_.clear(Kiv::collectionReport<131>(*this)); }
};

} // namespace PolicyMap
