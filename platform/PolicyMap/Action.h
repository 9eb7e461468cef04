// `Action`: what a class does with the packets that it matches. The kind of action is its
// `actionType`. A kind with parameters has a class derived from this one, such as `SetDscpAction`.
// Relies on the entities of the framework.
#pragma once

#include "Kiv/Entity.h"
#include "PolicyMap/ActionType.h"

namespace PolicyMap {

class Action : public Kiv::Entity {
   KIV_ENTITY(Action, Kiv::Entity, "PolicyMap::Action");
   KIV_CONSTANT(130, ActionType, actionType); // the key in its class

 public:
   explicit Action(ActionType actionType) : actionType_{actionType} {}
};

} // namespace PolicyMap
