#include "postcard/agent/service/StatusLog.h"

#include "postcard/agent/service/EventLoop.h"
#include "postcard/policy/PolicyBuilder.h"

#include <fmt/format.h>

#include <utility>

namespace Postcard::Agent::Service {

std::string statusLine(const PolicyReport& report) {
   return fmt::format("{} {}: {}{}{}{}", report.name, familyName(report.family),
                      policyStateName(report.state), report.overdue ? ", overdue" : "",
                      report.text.empty() ? "" : ", ", report.text);
}

void StatusLog::tell(const std::vector<PolicyReport>& reports) {
   // The new map holds the present reports only, so a policy that goes and comes back is told
   // again.
   const auto toldBefore = std::exchange(told_, {});
   for (const PolicyReport& report : reports) {
      const std::string line = statusLine(report);
      const std::string stamped = fmt::format("{} {}", report.generation, line);
      const auto known = toldBefore.find({report.name, report.family});
      if (known == toldBefore.end() || known->second != stamped) {
         say(line);
      }
      told_[{report.name, report.family}] = stamped;
   }
}

} // namespace Postcard::Agent::Service
