#include "postcard/agent/PolicyAgent.h"

#include "Kiv/System.h"
#include "postcard/policy/PolicyBuilder.h"

#include <algorithm>
#include <limits>

namespace Postcard::Agent {

namespace {

constexpr std::size_t behindTheFile = std::numeric_limits<std::size_t>::max();

// A new file is a reason to ask again at once.
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

// Listens to the rules client. An answer is copied when it is published and taken from the event
// loop, where no call of the rules client is under way; the record may hold the next one by then.
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
         settle(entry, PolicyState::removed, {}); // no step for it had begun
      }
      entry.retry = isDueAtReload(entry) ? Retry::now : Retry::none;
   }
}

void PolicyAgent::want(const std::shared_ptr<const PolicyVersion>& version, Policy::Family family,
                       std::size_t order) {
   const auto [item, isNew] = entries_.try_emplace({version->policy.name.text, family});
   PolicyEntry& entry = item->second;
   entry.since = isNew ? Kiv::System::currentTime() : entry.since;
   entry.wanted = version;
   entry.order = order;
   if (entry.config != nullptr && !refused(entry) && sameRules(*entry.made, *version, family)) {
      entry.made = version;
   }
   if (entry.config == nullptr && entry.residue == Residue::none) {
      settle(entry, PolicyState::waiting, {});
   }
}

// Puts every policy into the queue. Policies that are gone come first, by name, so that others can
// use the room that they free; then the file's, in its order.
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
   if (file.featureToggles != featureToggles_) {
      return {false, 0, {"feature toggles are read once: restart the agent to change them"}, true};
   }
   const auto versions = versionsOf(file);
   if (auto refusals = refusalsOf(versions, file.hardware, host_); !refusals.empty()) {
      return {false, 0, std::move(refusals)};
   }
   // `removed` was reported until now.
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

// Takes steps until one of them posts a request. It ends, because every other step brings its entry
// nearer to what is wanted, and an entry without steps leaves the queue.
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
   std::ranges::stable_sort(ordered, {}, [](const auto& item) { return item.first; });
   std::vector<PolicyReport> reports;
   reports.reserve(ordered.size());
   for (auto& [order, report] : ordered) {
      reports.push_back(std::move(report));
   }
   return reports;
}

} // namespace Postcard::Agent
