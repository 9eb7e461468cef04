// The core of the agent: what the file wants (`adopt`), the queue (`pump`), and the reports. The
// steps of a policy are in PolicyAgentSteps.cpp, the answers in PolicyAgentAnswers.cpp.
#include "postcard/agent/PolicyAgent.h"

#include "Kiv/System.h"
#include "postcard/policy/PolicyBuilder.h"

#include <algorithm>
#include <limits>

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
     options_{options},
     hooks_{std::move(hooks)},
     featureToggles_{file.featureToggles},
     requests_{OruPostcardTelemetry::postcardTelemetryRulesClientSmConfigFactory()},
     answers_{OruPostcardTelemetry::postcardTelemetryRulesClientSmStatusFactory()},
     hwCapability_{buildHwCapability(file.hardware)},
     helper_{host.makeHelper(requests_, hwCapability_)},
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
   for (auto& [key, entry] : entries_) {
      entry.wanted = nullptr;
      entry.order = behindTheFile;
   }
   std::size_t order = 0;
   for (const auto& version : versions) {
      for (const Policy::Family family : families) {
         if (!version->policy.interfaces(family).empty()) {
            want(version, family, order++);
         }
      }
   }
   for (auto& [key, entry] : entries_) {
      if (nothingRefersTo(entry)) {
         settle(entry, PolicyState::removed, {}); // the helper has none of it: no step is needed
      }
      entry.retry = isDueAtReload(entry) ? Retry::now : Retry::none;
   }
}

// Records `version` as the desired state of its entry in `family`, and makes the entry if needed.
void PolicyAgent::want(const std::shared_ptr<const PolicyVersion>& version, Policy::Family family,
                       std::size_t order) {
   const auto [item, isNew] = entries_.try_emplace({version->policy.name.text, family});
   PolicyEntry& entry = item->second;
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
   ordered.reserve(entries_.size());
   for (const auto& [key, entry] : entries_) {
      ordered.emplace_back(entry.order == behindTheFile ? 0 : entry.order + 1, key);
   }
   std::ranges::sort(ordered);
   queue_.clear();
   for (auto& [order, key] : ordered) {
      queue_.push_back(std::move(key));
   }
}

// The number of steps from here to the desired state, as `reload` reports it. Answers of the rules
// client may still add some.
std::size_t PolicyAgent::stepsLeft() const {
   std::size_t steps = 0;
   for (const auto& [key, entry] : entries_) {
      steps += stepsOf(entry, key.second).size();
   }
   return steps;
}

void PolicyAgent::start() {
   enqueueAll();
   pump();
}

ReloadResult PolicyAgent::reload(const Policy::PolicyFile& file) {
   // Helpers read a toggle once per process, so a change would reach the loader's checks and not
   // the helper.
   if (file.featureToggles != featureToggles_) {
      return {false, 0, {"feature toggles are read once: restart the agent to change them"}, true};
   }
   const auto versions = versionsOf(file);
   if (auto refusals = refusalsOf(versions, file.hardware, host_); !refusals.empty()) {
      return {false, 0, std::move(refusals)};
   }
   // The entries that are erased here were reported as `removed` until now.
   std::erase_if(entries_, [](const auto& item) { return nothingRefersTo(item.second); });
   hwCapability_->tcpFlagsSupportedIs(file.hardware.tcpFlags);
   adopt(versions);
   retryTime_ = options_.retryTime;
   const std::size_t steps = stepsLeft();
   enqueueAll();
   pump();
   return {true, steps, {}};
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
      const auto found = entries_.find(key);
      const auto steps =
            found == entries_.end() ? std::vector<Step>{} : stepsOf(found->second, key.second);
      if (!steps.empty()) {
         perform(steps.front(), found->second, key);
         continue;
      }
      // No step is due for a policy that is gone, so its state can be told.
      if (found != entries_.end() && found->second.wanted == nullptr) {
         settleWithoutRules(found->second);
      }
      queue_.pop_front();
   }
   if (idle()) {
      armRetry();
   }
   hooks_.changed();
}

std::vector<PolicyReport> PolicyAgent::report() const {
   std::vector<std::pair<std::size_t, PolicyReport>> ordered;
   ordered.reserve(entries_.size());
   for (const auto& [key, entry] : entries_) {
      ordered.emplace_back(entry.order, reportOf(key, entry));
   }
   // Stable: policies that are gone all have the same order, and stay sorted by name.
   std::ranges::stable_sort(ordered, {}, [](const auto& item) { return item.first; });
   std::vector<PolicyReport> reports;
   reports.reserve(ordered.size());
   for (auto& [order, report] : ordered) {
      reports.push_back(std::move(report));
   }
   return reports;
}

} // namespace Postcard::Agent
