// `SetDscpAction`: the action that writes a packet's differentiated-services code point. Relies on
// `Action`.
#pragma once

#include "Orlix/DscpValue.h"
#include "PolicyMap/Action.h"

namespace PolicyMap {

// Writes `dscp` into the packet's differentiated-services field (RFC 2474). Its type is
// `ActionType::setDscp`; an action of that type must be of this class.
class SetDscpAction : public Action {
   KIV_ENTITY(SetDscpAction, Action, "PolicyMap::SetDscpAction");
   KIV_CONSTANT(258, Orlix::DscpValue, dscp); // 0 to 63, not checked here

 public:
   explicit SetDscpAction(Orlix::DscpValue dscp) : Action{ActionType::setDscp}, dscp_{dscp} {}
};

} // namespace PolicyMap
