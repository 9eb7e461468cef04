// `ActionType`: what kinds of actions a class may have. Relies on the enumeration support of the
// framework.
#pragma once

#include "Kiv/Enumeration.h"
#include "Pello/Types.h"

#include <cstddef>

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

} // namespace PolicyMap
