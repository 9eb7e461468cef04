// `Action`: what a class does with the packets that it matches. The kind is its `actionType`; a
// kind with parameters has a class of its own.
#pragma once

#include "Kiv/Entity.h"
#include "Kiv/Enumeration.h"
#include "Orlix/DscpValue.h"

namespace PolicyMap {

enum class ActionType : U8 {
   permit = 0,
   drop = 1,
   count = 2,
   police = 3,
   redirect = 4,
   mirror = 5,
   setTrafficClass = 6,
   setDscp = 7,
   setVlan = 8,
   log = 9,
   nat = 10,
   sample = 18,
   sampleAll = 19,
};
KIV_ENUM(ActionType, ActionTypeInstance)

// One more than the largest action type.
inline constexpr std::size_t actionTypes = 20;

class Action : public Kiv::Entity {
   KIV_ENTITY(Action, Kiv::Entity, "PolicyMap::Action");
   KIV_CONSTANT(130, ActionType, actionType); // the key in its class

 public:
   explicit Action(ActionType actionType) : actionType_{actionType} {}
};

// Writes `dscp` into the packet's differentiated-services field (RFC 2474). Its type is `setDscp`.
class SetDscpAction : public Action {
   KIV_ENTITY(SetDscpAction, Action, "PolicyMap::SetDscpAction");
   KIV_CONSTANT(258, Orlix::DscpValue, dscp); // 0 to 63

 public:
   explicit SetDscpAction(Orlix::DscpValue dscp) : Action{ActionType::setDscp}, dscp_{dscp} {}
};

} // namespace PolicyMap
