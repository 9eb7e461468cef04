// `ClassMapSmCommonData`: the part of a class map that all features share: its name and its
// actions. A feature derives its own class map from it. Relies on the entities of the framework.
#pragma once

#include "Kiv/Entity.h"
#include "Kiv/HashMap2018.h"
#include "Kiv/String.h"
#include "PolicyMap/Action.h"

namespace PolicyMap {

class ClassMapSmCommonData : public Kiv::Entity {
   KIV_ENTITY(ClassMapSmCommonData, Kiv::Entity, "PolicyMap::ClassMapSmCommonData");
   KIV_CONSTANT(130, Pello::String, name); // the key in its policy

   using ActionMap = Kiv::HashMap2018<ActionType, Action, &Action::actionType, 0x6d0c2f5b>;
   ActionMap action_;

 public:
   // A class map without actions.
   explicit ClassMapSmCommonData(Pello::String name) : name_{std::move(name)} {}

   // The actions by their type, at most one of each. The caller makes them, unlike the elements of
   // a collection of the framework, because an action may be of a derived class. The class map
   // shares ownership of them.
   KIV_ROW(131, action, collection, ActionMap)
   const ActionMap& action() const { return action_; }
   // The action of that type, or null.
   Pello::Ptr<Action> action(ActionType type) const { return action_.get(type); }
   bool actionHas(ActionType type) const { return action_.has(type); }
   std::size_t actions() const { return action_.size(); }
   // Adds `action`, which must not be null, in place of the one of its type.
   void actionIs(const Pello::Ptr<Action>& action) {
      action_.put(Kiv::collectionReport<131>(*this), action);
   }
   // Removes the action of that type and returns it, or null when there was none.
   Pello::Ptr<Action> actionDel(ActionType type) {
      return action_.del(Kiv::collectionReport<131>(*this), type);
   }
   void actionDelAll() { action_.clear(Kiv::collectionReport<131>(*this)); }
};

} // namespace PolicyMap
