// `ActionType`: what kinds of actions a class may have. Relies on the enumeration support of the
// framework.
#pragma once

#include "Kiv/Enumeration.h"
#include "Pello/Types.h"

#include <cstddef>

namespace PolicyMap {

// The numbers of the types are fixed, because agents and helpers that were built separately
// exchange them. Postcard telemetry carries out `setDscp`, `sample` and `sampleAll` only.
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
   sample = 18,    // report the packets that satisfy the sample match of the class's filter
   sampleAll = 19, // report every packet
};
// `ActionTypeInstance(number)` is the type of that number; it throws Kiv::RangeError for any other.
KIV_ENUM(ActionType, ActionTypeInstance)

// One more than the largest action type: the size of a table that action types index.
inline constexpr std::size_t actionTypes = 20;

} // namespace PolicyMap
