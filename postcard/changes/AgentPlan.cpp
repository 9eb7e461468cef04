#include "postcard/changes/AgentPlan.h"

namespace Postcard::Changes {

std::string_view actionName(AgentAction action) {
   switch (action) {
   case AgentAction::none:
      return "none";
   case AgentAction::interfaces:
      return "interfaces";
   case AgentAction::create:
      return "create";
   case AgentAction::recreate:
      return "re-create";
   case AgentAction::remove:
      return "remove";
   }
   return {}; // no other action exists
}

namespace {

// The helper posts nothing about interfaces of a policy without rules.
AgentStep interfaceStep(const AclPair& pair, bool hasRules) {
   AgentStep step;
   const std::size_t changes = interfacesOnlyIn(pair.before, pair.after, pair.family).size() +
                               interfacesOnlyIn(pair.after, pair.before, pair.family).size();
   if (changes != 0) {
      step.action = AgentAction::interfaces;
      step.requests = hasRules ? changes : 0;
   }
   return step;
}

} // namespace

AgentStep agentStep(const AclPair& pair, bool same, const EntryCounts& entries) {
   const bool hadRules = entries.before.value_or(0) != 0;
   const bool hasRules = entries.after.value_or(0) != 0;
   if (same) {
      return interfaceStep(pair, hadRules);
   }
   AgentStep step;
   if (pair.after == nullptr) {
      step.action = AgentAction::remove;
   } else {
      // A refused policy has no configuration that could be made anew.
      step.action = entries.before ? AgentAction::recreate : AgentAction::create;
   }
   // One request either way: a policy that makes no rules any more is removed.
   step.requests = hadRules || hasRules ? 1 : 0;
   step.replacesRules = hadRules;
   return step;
}

std::size_t numberRequests(const std::vector<AgentStep*>& steps) {
   std::size_t posted = 0;
   for (AgentStep* step : steps) {
      step->firstRequest = step->requests == 0 ? 0 : posted + 1;
      posted += step->requests;
   }
   return posted;
}

} // namespace Postcard::Changes
