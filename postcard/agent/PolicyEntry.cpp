#include "postcard/agent/PolicyEntry.h"

#include "Kiv/System.h"
#include "postcard/host/HelperMessage.h"
#include "postcard/policy/PolicyBuilder.h"
#include "postcard/policy/PolicyDiff.h"

namespace Postcard::Agent {

namespace {

// The text of a policy that is failed because of its residue.
std::string residueText(const PolicyEntry& entry) {
   switch (entry.residue) {
   case Residue::none:
      return {};
   case Residue::earlierVersion:
      return "the rules client holds an earlier version";
   case Residue::unconfirmedRemoval:
      return "the rules client has not confirmed the removal";
   case Residue::refusedRemoval:
      return "the rules client still holds it: " + entry.removalAnswer;
   }
   return {};
}

} // namespace

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
   entry.retry = Retry::none;
}

void settleWithoutRules(PolicyEntry& entry) {
   if (entry.residue != Residue::none) {
      // An overdue entry has the helper's text about the missing answer, which says more.
      if (!entry.overdue) {
         settle(entry, PolicyState::failed, residueText(entry));
      }
      tryLater(entry);
   } else if (entry.config != nullptr) {
      // The helper returns success for a policy without rules, so there is no text of its own.
      settle(entry, PolicyState::empty, std::string{Host::noRulesMessage});
   } else {
      settle(entry, entry.wanted == nullptr ? PolicyState::removed : PolicyState::waiting, {});
   }
}

void tryLater(PolicyEntry& entry) {
   if (entry.retry == Retry::none) {
      entry.retry = Retry::later;
   }
}

void leave(PolicyEntry& entry, Residue residue, std::string answer) {
   entry.residue = residue;
   entry.removalAnswer = std::move(answer);
}

bool nothingRefersTo(const PolicyEntry& entry) {
   return entry.wanted == nullptr && entry.config == nullptr && entry.residue == Residue::none;
}

PolicyReport reportOf(const PolicyKey& key, const PolicyEntry& entry) {
   PolicyReport report{key.first,   key.second,    entry.state, entry.text, entry.generation,
                       entry.since, entry.overdue, {},          {},         0};
   if (entry.state == PolicyState::unsupported && entry.made != nullptr) {
      report.refusedKeys =
            Report::refusedKeysOf(entry.made->policy, key.second, {entry.made->tcpFlags});
   }
   if (entry.config != nullptr) {
      report.answers = entry.answers;
      report.entries = entry.config->ruleByIndexs();
      for (const auto& status : entry.config->aclConfigStatus()->statusInOrder()) {
         report.history.push_back(status.value().str());
      }
   }
   return report;
}

} // namespace Postcard::Agent
