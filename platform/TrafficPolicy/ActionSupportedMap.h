// `ActionSupportedMap`: which actions a feature can carry out, and the text that names those of a
// class that it cannot. Relies on `ClassMapSmCommonData`.
#pragma once

#include "Kiv/String.h"
#include "PolicyMap/ClassMapSmCommonData.h"

#include <bitset>
#include <initializer_list>

namespace TrafficPolicy {

// A set of action types. Never changes after construction, so threads may share one.
class ActionSupportedMap {
 public:
   // The given types are supported, all others are not. Throws std::out_of_range for a number that
   // is no action type (`PolicyMap::actionTypes` or more).
   ActionSupportedMap(std::initializer_list<PolicyMap::ActionType> supported);

   // Whether the type was given to the constructor. False for a number that is no action type.
   bool supported(PolicyMap::ActionType type) const;

   // Returns the empty text when the feature can carry out all actions of the class, which must not
   // be null. Otherwise returns "Unsupported action(s):" and for each action that the feature
   // cannot carry out, in ascending order of the numbers, " 'name',", with the comma after the last
   // one too. Setting the DSCP is never named: every feature supports it.
   Kiv::String checkUnsupportedActionConfig(
         const Pello::Ptr<const PolicyMap::ClassMapSmCommonData>& classData) const;

 private:
   std::bitset<PolicyMap::actionTypes> flags_;
};

} // namespace TrafficPolicy
