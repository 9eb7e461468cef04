#include "postcard/agent/PolicyAgent.h"

#include "Kiv/System.h"
#include "postcard/policy/PolicyBuilder.h"

#include <algorithm>
#include <limits>

namespace Postcard::Agent {

namespace {

// Identifier of the answer's counter in the rules client's record.
constexpr U16 kickResponseId = 132;

constexpr std::size_t behindTheFile = std::numeric_limits<std::size_t>::max();

// Neither the file nor the helper nor, as far as is known, the rules client.
bool nothingRefersTo(const PolicyEntry& entry) {
   return entry.wanted == nullptr && entry.config == nullptr && entry.held.empty();
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
   // The answer is taken from the event loop, not inside the rules client's own call. By then the
   // record may hold the next one.
   answerSubscription_ = answers_->publisher()->subscribe([this](const Pello::Change& change) {
      if (change.attribute == kickResponseId) {
         const Answer answer{answers_->kickResponse(), answers_->statusType(), answers_->status()};
         hooks_.later([this, answer] { answered(answer); });
      }
   });
}

PolicyAgent::~PolicyAgent() = default;

// ---- What the file wants ----

// Makes the versions what is wanted, with an entry for each policy and family of them.
void PolicyAgent::adopt(const std::vector<std::shared_ptr<const PolicyVersion>>& versions) {
   for (auto& [key, entry] : entries_) {
      entry.wanted = nullptr;
      entry.order = behindTheFile;
   }
   std::size_t order = 0;
   for (const auto& version : versions) {
      for (const Policy::Family family : families) {
         if (version->policy.interfaces(family).empty()) {
            continue;
         }
         const auto [item, isNew] = entries_.try_emplace({version->policy.name.text, family});
         PolicyEntry& entry = item->second;
         entry.since = isNew ? Kiv::System::currentTime() : entry.since;
         entry.wanted = version;
         entry.order = order++;
         if (entry.config != nullptr && !refused(entry) &&
             sameRules(*entry.made, *version, family)) {
            entry.made = version;
         }
         if (entry.config == nullptr && entry.held.empty()) {
            settle(entry, PolicyState::waiting, {});
         }
      }
   }
   for (auto& [key, entry] : entries_) {
      if (nothingRefersTo(entry)) {
         settle(entry, PolicyState::removed, {}); // its turn had not come
      }
      entry.due = entry.overdue || entry.state == PolicyState::failed ||
                  (refused(entry) && !entry.held.empty());
   }
}

// Puts every policy into the queue: what is gone first, by name, so that what it frees can be used,
// then in the order of the file.
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
   // What was gone before this reload has been told.
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

// Takes steps until one of them posts a request. Every step leads on, so there is an end.
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
