#include "postcard/changes/FileChanges.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>
#include <string_view>
#include <utility>

namespace Postcard::Changes {

namespace {

using Acl = OruPostcardTelemetry::PostcardTelemetryAclConfig;

std::optional<std::size_t> countOf(const Acl* acl) {
   return acl == nullptr ? std::nullopt : std::optional{acl->ruleByIndexs()};
}

} // namespace

bool AclChange::none() const {
   return interfacesAdded.empty() && interfacesRemoved.empty() && packets.none() &&
          entries.none() && agent.action == AgentAction::none;
}

AclChange aclChange(Analysis::PacketSpace& space, const BothFiles& files, const AclPair& pair,
                    const BothAcls& acls) {
   const bool same = sameRules(pair, files.before.hardware, files.after.hardware);
   AclChange change;
   change.policy = pair.policy;
   change.family = pair.family;
   change.interfacesAdded = interfacesOnlyIn(pair.after, pair.before, pair.family);
   change.interfacesRemoved = interfacesOnlyIn(pair.before, pair.after, pair.family);
   change.agent = agentStep(pair, same, {countOf(acls.before), countOf(acls.after)});
   // Most pairs of two versions of a file make the same rules; nothing has to be compared then.
   if (!same) {
      const auto version = [](const Acl* acl, const Policy::Policy* policy,
                              const Policy::Hardware& hardware) {
         return Analysis::Version{acl == nullptr ? nullptr : policy, hardware.tcpFlags};
      };
      change.packets = differencesOf(space, pair.family,
                                     version(acls.before, pair.before, files.before.hardware),
                                     version(acls.after, pair.after, files.after.hardware));
      change.entries = entryChanges(acls.before, acls.after);
   }
   return change;
}

// ---- The files as a whole ----

namespace {

// Both files have every toggle that exists.
void findToggles(FileChanges& changes, const BothFiles& files) {
   for (const auto& [name, isOn] : files.after.featureToggles) {
      const auto old = files.before.featureToggles.find(name);
      if (old == files.before.featureToggles.end() || old->second != isOn) {
         changes.toggles.push_back(name);
      }
   }
}

// The place of each policy.
std::map<std::string_view, Policy::Location> placesOf(const Policy::PolicyFile& file) {
   std::map<std::string_view, Policy::Location> places;
   for (const Policy::Policy& policy : file.policies) {
      places.emplace(policy.name.text, policy.name.location);
   }
   return places;
}

void findPolicies(FileChanges& changes, const BothFiles& files) {
   const auto old = placesOf(files.before);
   const auto wanted = placesOf(files.after);
   for (const auto& [name, place] : old) {
      if (!wanted.contains(name)) {
         changes.policies.push_back({std::string{name}, place, {}});
      }
   }
   std::set<std::string_view> differing;
   for (const AclChange& change : changes.acls) {
      differing.insert(change.policy);
   }
   for (const Policy::Policy& policy : files.after.policies) {
      const std::string& name = policy.name.text;
      const auto found = old.find(name);
      if (found == old.end()) {
         changes.policies.push_back({name, {}, policy.name.location});
      } else if (differing.contains(name)) {
         changes.policies.push_back({name, found->second, policy.name.location});
      } else {
         ++changes.samePolicies;
      }
   }
}

} // namespace

void complete(FileChanges& changes, const BothFiles& files) {
   findToggles(changes, files);
   findPolicies(changes, files);
   std::vector<AgentStep*> steps;
   steps.reserve(changes.acls.size());
   for (AclChange& change : changes.acls) {
      steps.push_back(&change.agent);
   }
   changes.requests = numberRequests(steps);
   if (!changes.toggles.empty()) {
      changes.agentRefuses.emplace_back(
            "the feature toggles differ, and an agent reads them once: restart it");
   }
   for (const Report::Refusal& refusal : changes.refusedAfter) {
      changes.agentRefuses.push_back(fmt::format("the plug-in refuses policy '{}' in {}",
                                                 refusal.policy, familyName(refusal.family)));
   }
   if (files.after.policies.empty() && !files.before.policies.empty()) {
      changes.agentRefuses.emplace_back(
            "the new file has no policies: that needs reload --allow-empty");
   }
}

} // namespace Postcard::Changes
