#include "postcard/agent/PolicyReport.h"

namespace Postcard::Agent {

std::string_view policyStateName(PolicyState state) {
   switch (state) {
   case PolicyState::invalid:
      return "invalid";
   case PolicyState::unsupported:
      return "unsupported";
   case PolicyState::empty:
      return "empty";
   case PolicyState::waiting:
      return "waiting";
   case PolicyState::programmed:
      return "programmed";
   case PolicyState::failed:
      return "failed";
   case PolicyState::removed:
      return "removed";
   }
   return "?"; // not reached: every enumerator has its case
}

std::string ReloadResult::text() const {
   if (accepted) {
      return std::to_string(operations) + (operations == 1 ? " operation\n" : " operations\n");
   }
   std::string text;
   for (const std::string& finding : findings) {
      text += finding + "\n";
   }
   return text;
}

} // namespace Postcard::Agent
