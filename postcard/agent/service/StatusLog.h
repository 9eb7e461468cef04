// `StatusLog`: writes to standard error what changes in the reports of an agent, a line per policy
// and family. Relies on the reports only.
#pragma once

#include "postcard/agent/EntryTable.h"

#include <map>
#include <string>

namespace Postcard::Agent::Service {

// A report on one line, such as "web ipv4: failed, full: web-ipv4 needs 12 entries, 5 of 16 are
// free", without line end.
std::string statusLine(const PolicyReport& report);

class StatusLog {
 public:
   // Takes `PolicyAgent::takeChanges`. Writes the line of each report that is new, whose line
   // differs from the one that was told last, or that is about another request. Thus a policy that
   // is programmed again is told again, although its line reads the same. Forgets what is gone, so
   // that it is told again when it comes back.
   void tell(const Changes& changes);

 private:
   std::map<PolicyKey, std::string> told_; // request counter and line, as told last
};

} // namespace Postcard::Agent::Service
