#include "postcard/agent/service/StatusLog.h"

#include "postcard/agent/service/ErrorOutput.h"
#include "postcard/policy/PolicyBuilder.h"

#include <fmt/format.h>

#include <utility>

namespace Postcard::Agent::Service {

std::string statusLine(const PolicyReport& report) {
   return fmt::format("{} {}: {}{}{}{}", report.name, familyName(report.family),
                      policyStateName(report.state), report.overdue ? ", overdue" : "",
                      report.text.empty() ? "" : ", ", report.text);
}

void StatusLog::tell(const Changes& changes) {
   for (const PolicyKey& key : changes.gone) {
      told_.erase(key);
   }
   for (const PolicyReport& report : changes.reports) {
      const std::string line = statusLine(report);
      std::string stamped = fmt::format("{} {}", report.generation, line);
      std::string& told = told_[{report.name, report.family}];
      if (told != stamped) {
         say(line);
         told = std::move(stamped);
      }
   }
}

} // namespace Postcard::Agent::Service
