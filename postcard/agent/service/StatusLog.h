// `StatusLog`: writes to standard error what changes in the reports of an agent, a line per policy
// and family. Relies on the reports only.
#pragma once

#include "postcard/agent/PolicyEntry.h"
#include "postcard/agent/PolicyReport.h"

#include <map>
#include <string>
#include <vector>

namespace Postcard::Agent::Service {

// A report on one line, such as "web ipv4: failed, full: web-ipv4 needs 12 entries, 5 of 16 are
// free", without line end.
std::string statusLine(const PolicyReport& report);

class StatusLog {
 public:
   // `reports` must be all reports of an agent. Writes the line of each report that is new, whose
   // line differs from that of the call before, or that is about another request. Thus a policy
   // that is programmed again is told again, although its line reads the same.
   void tell(const std::vector<PolicyReport>& reports);

 private:
   std::map<PolicyKey, std::string> told_; // request counter and line, as of the latest call
};

} // namespace Postcard::Agent::Service
