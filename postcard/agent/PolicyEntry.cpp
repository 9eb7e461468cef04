#include "postcard/agent/PolicyEntry.h"

#include "Kiv/System.h"
#include "postcard/policy/PolicyBuilder.h"
#include "postcard/policy/PolicyDiff.h"

namespace Postcard::Agent {

std::vector<std::shared_ptr<const PolicyVersion>> versionsOf(const Policy::PolicyFile& file) {
   std::vector<std::shared_ptr<const PolicyVersion>> versions;
   versions.reserve(file.policies.size());
   for (const Policy::Policy& policy : file.policies) {
      versions.push_back(std::make_shared<const PolicyVersion>(
            PolicyVersion{policy, buildPolicy(policy), file.hardware.tcpFlags}));
   }
   return versions;
}

bool sameRules(const PolicyVersion& a, const PolicyVersion& b, Policy::Family family) {
   return a.tcpFlags == b.tcpFlags && samePolicyClasses(a.policy, b.policy, family);
}

void settle(PolicyEntry& entry, PolicyState state, std::string text) {
   if (entry.state != state) {
      entry.since = Kiv::System::currentTime();
   }
   entry.state = state;
   entry.text = std::move(text);
   entry.overdue = false;
   entry.tryAgain = false;
   entry.due = false;
}

void settleWithoutRules(PolicyEntry& entry) {
   if (!entry.held.empty()) {
      if (!entry.overdue) {
         settle(entry, PolicyState::failed, entry.held);
      }
      entry.tryAgain = true;
   } else if (entry.config != nullptr) {
      settle(entry, PolicyState::empty, "No rules configured in policy");
   } else {
      settle(entry, entry.wanted == nullptr ? PolicyState::removed : PolicyState::waiting, {});
   }
}

PolicyReport reportOf(const PolicyKey& key, const PolicyEntry& entry) {
   PolicyReport report{key.first,        key.second,  entry.state,   entry.text,
                       entry.generation, entry.since, entry.overdue, {}};
   if (entry.config != nullptr) {
      for (const auto& status : entry.config->aclConfigStatus()->statusInOrder()) {
         report.history.push_back(status.value().str());
      }
   }
   return report;
}

} // namespace Postcard::Agent
