// `ActionSupportedMap`: which actions a feature can carry out, and the text that names those of a
// class that it cannot.
#pragma once

#include "Kiv/String.h"
#include "PolicyMap/ClassMapSmCommonData.h"

#include <bitset>
#include <initializer_list>

namespace TrafficPolicy {

class ActionSupportedMap {
 public:
   // Sets the flags of the given types; all others are clear.
   ActionSupportedMap(std::initializer_list<PolicyMap::ActionType> supported);

   bool supported(PolicyMap::ActionType type) const;

   // Empty when the class's actions can all be carried out. Otherwise `Unsupported action(s):` and,
   // in ascending order of their numbers, a blank, the action's name in single quotes and a comma
   // for each that cannot. Setting the DSCP is never named: every feature supports it.
   Kiv::String checkUnsupportedActionConfig(
         const Pello::Ptr<const PolicyMap::ClassMapSmCommonData>& classData) const;

 private:
   std::bitset<PolicyMap::actionTypes> flags_;
};

} // namespace TrafficPolicy
