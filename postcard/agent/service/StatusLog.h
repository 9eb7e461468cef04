// `StatusLog`: tells on standard error what changes in the reports of an agent, a line per policy
// and family. Relies on the reports only.
#pragma once

#include "postcard/agent/PolicyEntry.h"
#include "postcard/agent/PolicyReport.h"

#include <map>
#include <string>
#include <vector>

namespace Postcard::Agent::Service {

// "web ipv4: failed, full: web-ipv4 needs 12 entries, 5 of 16 are free", without line end.
std::string statusLine(const PolicyReport& report);

class StatusLog {
 public:
   // `reports` are all of an agent. Says the lines that are new or that differ from those of the
   // call before, also when only the request that they are about is another.
   void tell(const std::vector<PolicyReport>& reports);

 private:
   std::map<PolicyKey, std::string> told_; // request counter and line
};

} // namespace Postcard::Agent::Service
