// The core of the agent: what the file wants (`adopt`), the queue (`pump`), and the reports. The
// steps of a policy are in PolicyAgentSteps.cpp, the answers in PolicyAgentAnswers.cpp.
#include "postcard/agent/PolicyAgent.h"

#include "Kiv/System.h"
#include "postcard/policy/PolicyBuilder.h"

#include <algorithm>
#include <limits>
#include <unordered_map>
#include <utility>

namespace Postcard::Agent {

namespace {

// `PolicyEntry::order` of a policy that is not in the file: `report` shows it last.
constexpr std::size_t behindTheFile = std::numeric_limits<std::size_t>::max();

// Whether a reload makes the next attempt due, without waiting for the retry time: the operator may
// have mended the cause. A refused policy counts when the rules client may still hold an ACL of it.
bool isDueAtReload(const PolicyEntry& entry) {
   return entry.overdue || entry.state == PolicyState::failed ||
          (refused(entry) && entry.residue != Residue::none);
}

} // namespace

PolicyAgent::PolicyAgent(const Host::PluginHost& host, const Policy::PolicyFile& file,
                         Options options, Hooks hooks)
   : host_{host},
     hardware_{file.hardware},
     options_{options},
     hooks_{std::move(hooks)},
     featureToggles_{file.featureToggles},
     requests_{OruPostcardTelemetry::postcardTelemetryRulesClientSmConfigFactory()},
     answers_{OruPostcardTelemetry::postcardTelemetryRulesClientSmStatusFactory()},
     hwCapability_{buildHwCapability(file.hardware)},
     helper_{host.makeHelper(requests_, hwCapability_)},
     configs_{helper_},
     retryTime_{options.retryTime} {
   adopt(versionsOf(file));
   hear();
}

PolicyAgent::~PolicyAgent() = default;

// Subscribes to the answers. An answer is copied while it is published, because the record may hold
// the next one when the event loop runs. It is processed from the event loop and not at once: the
// rules client may answer inside the very call that posts its request, before `await` has noted it.
void PolicyAgent::hear() {
   answerSubscription_ = answers_->publisher()->subscribe([this](const Pello::Change& change) {
      if (change.attribute == RulesClient::StatusRecord::kickResponseId) {
         const Answer answer{answers_->kickResponse(), answers_->statusType(), answers_->status(),
                             RulesClient::outcomeOf(*answers_)};
         hooks_.later([this, answer] { answered(answer); });
      }
   });
}

// ---- What the file wants ----

// Records `versions` as the desired state, with an entry for each of their policies and families.
void PolicyAgent::adopt(const std::vector<std::shared_ptr<const PolicyVersion>>& versions) {
   entries_.forEach([](const PolicyKey&, PolicyEntry& entry) {
      entry.wanted = nullptr;
      entry.order = behindTheFile;
   });
   std::size_t order = 0;
   for (const auto& version : versions) {
      for (const Policy::Family family : families) {
         if (!version->policy.interfaces(family).empty()) {
            want(version, family, order++);
         }
      }
   }
   entries_.forEach([](const PolicyKey&, PolicyEntry& entry) {
      if (nothingRefersTo(entry)) {
         settle(entry, PolicyState::removed, {}); // the helper has none of it: no step is needed
      }
      entry.retry = isDueAtReload(entry) ? Retry::now : Retry::none;
   });
}

// Records `version` as the desired state of its entry in `family`, and makes the entry if needed.
void PolicyAgent::want(const std::shared_ptr<const PolicyVersion>& version, Policy::Family family,
                       std::size_t order) {
   const auto [item, isNew] = entries_.make({version->policy.name.text, family});
   PolicyEntry& entry = *item;
   entry.since = isNew ? Kiv::System::currentTime() : entry.since;
   entry.wanted = version;
   entry.order = order;
   // The plan compares versions by address. What the helper has counts as made of the new version
   // when the rules would be the same, so that nothing is built anew.
   if (entry.config != nullptr && !refused(entry) && sameRules(*entry.made, *version, family)) {
      entry.made = version;
   }
   // A policy that is new, or that comes back after its removal.
   if (entry.config == nullptr && entry.residue == Residue::none) {
      settle(entry, PolicyState::waiting, {});
   }
}

// Replaces the queue by all policies. Those that are gone from the file come first, by name: their
// removal frees entries that the others may need. Then come those of the file, in its order.
void PolicyAgent::enqueueAll() {
   std::vector<std::pair<std::size_t, PolicyKey>> ordered;
   entries_.forEach([&](const PolicyKey& key, const PolicyEntry& entry) {
      ordered.emplace_back(entry.order == behindTheFile ? 0 : entry.order + 1, key);
   });
   std::ranges::sort(ordered);
   queue_.clear();
   for (auto& [order, key] : ordered) {
      queue_.push_back(std::move(key));
   }
}

// The number of steps from here to the desired state, as `reload` reports it. Answers of the rules
// client may still add some.
std::size_t PolicyAgent::stepsLeft() {
   std::size_t steps = 0;
   entries_.forEach([&](const PolicyKey& key, const PolicyEntry& entry) {
      steps += stepsOf(entry, key.second).size();
   });
   return steps;
}

void PolicyAgent::start() {
   enqueueAll();
   pump();
}

std::vector<ReloadFinding> PolicyAgent::refusals() const {
   return refusalsOf(entries_.wanted(), hardware_, host_);
}

ReloadResult PolicyAgent::reload(const Policy::PolicyFile& file, Refused refused) {
   // Helpers read a toggle once per process, so a change would reach the loader's checks and not
   // the helper.
   if (file.featureToggles != featureToggles_) {
      return refusedReload("toggles",
                           "feature toggles are read once: restart the agent to change them");
   }
   const auto versions = versionsOf(file);
   ReloadResult result;
   result.findings = refusalsOf(versions, file.hardware, host_);
   if (!result.findings.empty() && refused == Refused::nothingIsDone) {
      return result;
   }
   // The entries that are erased here were reported as `removed` until now.
   entries_.dropUnreferenced();
   hwCapability_->tcpFlagsSupportedIs(file.hardware.tcpFlags);
   adopt(versions);
   retryTime_ = options_.retryTime;
   result.accepted = true;
   result.operations = stepsLeft();
   enqueueAll();
   pump();
   return result;
}

void PolicyAgent::deleteAll() {
   adopt({});
   retryTime_ = options_.retryTime;
   enqueueAll();
   pump();
}

// Takes steps until one of them posts a request or the queue is empty. The loop ends: a step that
// posts nothing brings its entry nearer to the desired state, and an entry without steps leaves the
// queue. The steps are computed anew in each round, because each step changes the entry.
void PolicyAgent::pump() {
   while (!inFlight_ && !queue_.empty()) {
      const PolicyKey key = queue_.front();
      PolicyEntry* entry = entries_.find(key);
      const auto steps = entry == nullptr ? std::vector<Step>{} : stepsOf(*entry, key.second);
      if (!steps.empty()) {
         perform(steps.front(), *entry, key);
         continue;
      }
      // No step is due for a policy that is gone, so its state can be told.
      if (entry != nullptr && entry->wanted == nullptr) {
         settleWithoutRules(*entry);
      }
      queue_.pop_front();
   }
   if (idle()) {
      armRetry();
   }
   hooks_.changed();
}

void PolicyAgent::forEachAcl(
      const std::function<void(const OruPostcardTelemetry::PostcardTelemetryAclConfig&,
                               const Host::CompiledPolicy*)>& visit) const {
   using Owner = std::pair<Policy::Family, const PolicyEntry*>;
   std::unordered_map<const OruPostcardTelemetry::PostcardTelemetryAclConfig*, Owner> owners;
   entries_.forEach([&](const PolicyKey& key, const PolicyEntry& entry) {
      if (entry.config != nullptr && entry.made != nullptr) {
         owners.emplace(entry.config.get(), Owner{key.second, &entry});
      }
   });
   helper_.forEachAclConfig([&](const OruPostcardTelemetry::PostcardTelemetryAclConfig& acl) {
      const auto found = owners.find(&acl);
      if (found == owners.end()) {
         return visit(acl, nullptr);
      }
      const auto& [family, entry] = found->second;
      const Host::CompiledPolicy compiled{entry->made->policy, family, entry->made->tcpFlags, acl};
      visit(acl, &compiled);
   });
}

std::vector<PolicyReport> PolicyAgent::report() const {
   return entries_.report();
}

} // namespace Postcard::Agent
