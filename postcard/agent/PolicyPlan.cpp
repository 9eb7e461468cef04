#include "postcard/agent/PolicyPlan.h"

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/RulesClientSm.h"
#include "postcard/host/HelperMessage.h"
#include "postcard/policy/PolicyBuilder.h"

#include <algorithm>
#include <string_view>
#include <unordered_set>

namespace Postcard::Agent {

namespace {

// The steps from the interfaces of the configuration to those of the file: additions in the order
// of the file, then removals by name. Both orders are the same in every run; the helper's set of
// interfaces has none.
std::vector<Step> interfaceSteps(const PolicyEntry& entry, Policy::Family family) {
   std::vector<Step> steps;
   std::unordered_set<std::string_view> wanted;
   for (const Policy::Name& name : entry.wanted->policy.interfaces(family)) {
      wanted.insert(name.text);
      const Orlix::IntfId intf{name.text};
      if (!entry.config->policyIntf(intf)) {
         steps.push_back({Verb::addIntf, intf});
      }
   }
   const auto added = static_cast<std::ptrdiff_t>(steps.size());
   for (const auto& intf : entry.config->policyIntf()) {
      if (!wanted.contains(intf.stringValue().view())) {
         steps.push_back({Verb::removeIntf, intf});
      }
   }
   std::sort(steps.begin() + added, steps.end(), [](const Step& a, const Step& b) {
      return a.intf.stringValue() < b.intf.stringValue();
   });
   return steps;
}

} // namespace

std::vector<Step> stepsOf(const PolicyEntry& entry, Policy::Family family) {
   if (entry.wanted == nullptr) {
      // A residue is removed once more only when the time for the next attempt has come.
      const bool isLeft = entry.retry == Retry::now && entry.residue != Residue::none;
      return entry.config != nullptr || isLeft ? std::vector<Step>{{Verb::remove, {}}}
                                               : std::vector<Step>{};
   }
   if (entry.made != entry.wanted) {
      return {{Verb::build, {}}};
   }
   if (refused(entry)) {
      return {}; // the helper would refuse the same version again
   }
   if (entry.config == nullptr) {
      return {{Verb::build, {}}}; // its rules were taken back; the version without rules is due
   }
   std::vector<Step> steps = interfaceSteps(entry, family);
   // Whether the rules client holds this version, or will when the request in flight is answered.
   const bool known = entry.state == PolicyState::programmed ||
                      (entry.state == PolicyState::waiting && !entry.overdue);
   if (!known && !steps.empty()) {
      // The rules client may hold nothing or an older version. A request about interfaces changes
      // nothing but the interfaces, so it would not bring the rules up to date.
      return {{Verb::build, {}}};
   }
   if (entry.retry == Retry::now) {
      steps.push_back({Verb::commit, {}});
   }
   return steps;
}

PolicyState refusedState(std::string_view message) {
   return Host::kindOf(message) == Host::HelperMessageKind::unsupported ? PolicyState::unsupported
                                                                        : PolicyState::invalid;
}

std::vector<ReloadFinding>
refusalsOf(const std::vector<std::shared_ptr<const PolicyVersion>>& versions,
           const Policy::Hardware& hardware, const Host::PluginHost& host) {
   const auto capability = buildHwCapability(hardware);
   std::vector<ReloadFinding> refusals;
   for (const auto& version : versions) {
      // A helper per policy: the configurations of one policy are freed before the next is made.
      const Host::HelperHandle scratch = host.makeHelper(
            OruPostcardTelemetry::postcardTelemetryRulesClientSmConfigFactory(), capability);
      for (const Policy::Family family : families) {
         // The helper ends the process when it is given a family without interfaces.
         if (version->policy.interfaces(family).empty()) {
            continue;
         }
         const Kiv::String message = scratch->createPolicy(version->data, matchOptionOf(family));
         if (!message.empty()) {
            refusals.push_back({{},
                                version->policy.name.location,
                                version->policy.name.text,
                                family,
                                std::string{policyStateName(refusedState(message.view()))},
                                message.str(),
                                Report::refusedKeysOf(version->policy, family, hardware)});
         }
      }
   }
   return refusals;
}

} // namespace Postcard::Agent
