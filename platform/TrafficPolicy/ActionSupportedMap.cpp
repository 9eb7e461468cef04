#include "TrafficPolicy/ActionSupportedMap.h"

#include <algorithm>
#include <string>
#include <vector>

namespace TrafficPolicy {

using PolicyMap::ActionType;

ActionSupportedMap::ActionSupportedMap(std::initializer_list<ActionType> supported) {
   for (const ActionType type : supported) {
      flags_.set(static_cast<std::size_t>(type));
   }
}

bool ActionSupportedMap::supported(ActionType type) const {
   const auto number = static_cast<std::size_t>(type);
   return number < flags_.size() && flags_.test(number);
}

Kiv::String ActionSupportedMap::checkUnsupportedActionConfig(
      const Pello::Ptr<const PolicyMap::ClassMapSmCommonData>& classData) const {
   // Sorted, because the collection is a hash table, and the operator should see the same text for
   // the same configuration.
   std::vector<ActionType> unsupported;
   for (const auto& action : classData->action()) {
      if (!supported(action.key()) && action.key() != ActionType::setDscp) {
         unsupported.push_back(action.key());
      }
   }
   if (unsupported.empty()) {
      return {};
   }
   std::ranges::sort(unsupported);
   std::string text = "Unsupported action(s):";
   for (const ActionType type : unsupported) {
      text += " '" + stringValue(type) + "',";
   }
   return text;
}

} // namespace TrafficPolicy
