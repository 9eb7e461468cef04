// The steps of a policy, which post requests, and the answers to them.
#include "postcard/agent/PolicyAgent.h"
#include "postcard/policy/PolicyBuilder.h"

#include <algorithm>
#include <utility>

namespace Postcard::Agent {

namespace {

using OruPostcardTelemetry::PostcardTelemetryAclConfig;

// Rules clients begin so what will never succeed.
bool neverSucceeds(const Pello::String& text) {
   return text.view().starts_with("invalid:");
}

} // namespace

// ---- Steps ----

void PolicyAgent::perform(const Step& step, PolicyEntry& entry, const PolicyKey& key) {
   switch (step.verb) {
   case Verb::build:
      return build(entry, key);
   case Verb::commit:
      return commit(entry, key, Attempt::again);
   case Verb::remove:
      return remove(entry, key);
   case Verb::addIntf:
   case Verb::removeIntf:
      return changeIntf(step, entry, key);
   }
}

void PolicyAgent::build(PolicyEntry& entry, const PolicyKey& key) {
   const auto matchOption = matchOptionOf(key.second);
   const bool posted = entry.config != nullptr && entry.config->rulesClientUpdated();
   const Kiv::String message = entry.config != nullptr
                                     ? helper_->recreatePolicy(entry.wanted->data, matchOption)
                                     : helper_->createPolicy(entry.wanted->data, matchOption);
   entry.made = entry.wanted;
   entry.config = configOf(key);
   if (entry.config == nullptr && posted) {
      entry.held = "the rules client holds an earlier version";
   }
   if (!message.empty()) {
      const bool unsupported = message.view().starts_with("Unsupported");
      settle(entry, unsupported ? PolicyState::unsupported : PolicyState::invalid, message.str());
      return;
   }
   if (entry.config == nullptr) {
      settle(entry, PolicyState::invalid, "the helper made no ACL configuration");
      return;
   }
   commit(entry, key, Attempt::first);
}

void PolicyAgent::commit(PolicyEntry& entry, const PolicyKey& key, Attempt attempt) {
   const bool due = std::exchange(entry.due, false);
   if (entry.config->ruleByNames() != 0) {
      const U32 before = requests_->kickRequest();
      helper_->commitPolicy(entry.made->data, matchOptionOf(key.second));
      await(key, entry, before, attempt);
   } else if (entry.config->rulesClientUpdated() || (due && !entry.held.empty())) {
      // A helper posts nothing for a policy without rules, and hardware would keep the old ones.
      // When they are gone, it is built again.
      remove(entry, key);
   } else {
      settleWithoutRules(entry);
   }
}

void PolicyAgent::remove(PolicyEntry& entry, const PolicyKey& key) {
   const auto matchOption = matchOptionOf(key.second);
   const Attempt attempt = entry.held.empty() ? Attempt::first : Attempt::again;
   if (entry.config == nullptr) {
      helper_->createPolicy(entry.made->data, matchOption);
      entry.config = configOf(key);
      if (entry.config == nullptr) { // the helper refuses what it made before
         entry.due = false;
         return settleWithoutRules(entry);
      }
   }
   if (!entry.held.empty()) {
      // The helper forgot with the configuration that the rules client was told of it. Reminded, it
      // posts the deletion once more.
      entry.config->rulesClientUpdatedIs(true);
   }
   const U32 before = requests_->kickRequest();
   helper_->deletePolicy(entry.made->data, matchOption);
   entry.config = nullptr;
   await(key, entry, before, attempt);
   if (inFlight_) {
      entry.held = "the rules client has not confirmed the removal";
   } else {
      settleWithoutRules(entry);
   }
}

void PolicyAgent::changeIntf(const Step& step, PolicyEntry& entry, const PolicyKey& key) {
   const auto matchOption = matchOptionOf(key.second);
   const L3::VrfName vrf{"default"};
   const U32 before = requests_->kickRequest();
   if (step.verb == Verb::addIntf) {
      helper_->addIntfToPolicy(entry.made->data, step.intf, step.intf, vrf, matchOption);
   } else {
      helper_->removeIntfFromPolicy(entry.made->data, step.intf, step.intf, vrf, matchOption);
   }
   await(key, entry, before, Attempt::first);
}

// Waits for the answer, if a request was posted since the counter read `before`. What is overdue
// stays so until there is an answer, and so does a failure that is tried again: it tells since
// when.
void PolicyAgent::await(const PolicyKey& key, PolicyEntry& entry, U32 before, Attempt attempt) {
   const U32 request = requests_->kickRequest();
   if (request == before) {
      return;
   }
   entry.generation = request;
   const bool failedBefore = attempt == Attempt::again && entry.state == PolicyState::failed;
   if (!entry.overdue && !failedBefore) {
      settle(entry, PolicyState::waiting, {});
   }
   entry.tryAgain = false;
   entry.due = false;
   inFlight_ = Request{key, request, entry.config == nullptr};
   expired_.reset();
   retryArmed_ = false;
   hooks_.timer(options_.answerTime);
}

// ---- Answers ----

void PolicyAgent::answered(const Answer& answer) {
   if (inFlight_ && inFlight_->number == answer.request) {
      const Request request = *inFlight_;
      inFlight_.reset();
      hooks_.timer(std::nullopt);
      takeAnswer(request, answer);
   } else if (expired_ && expired_->number == answer.request) {
      const Request request = *expired_;
      expired_.reset();
      takeAnswer(request, answer);
   } else if (inFlight_) {
      return; // to an earlier request; the one in flight has its time
   }
   retry(true);
   pump();
}

void PolicyAgent::takeAnswer(const Request& request, const Answer& answer) {
   const auto found = entries_.find(request.key);
   if (found == entries_.end()) {
      return;
   }
   PolicyEntry& entry = found->second;
   if (request.removal) {
      return takeRemovalAnswer(entry, answer);
   }
   if (entry.config == nullptr) {
      return; // the helper has forgotten it since
   }
   helper_.updatePolicyStatus(answer.type, answer.text);
   trimHistory(entry);
   if (answer.type == OruPostcardTelemetry::statusSuccess) {
      retryTime_ = options_.retryTime;
      entry.held.clear(); // what is programmed has replaced it
      settle(entry, PolicyState::programmed, answer.text.str());
   } else {
      settle(entry, PolicyState::failed, answer.text.str());
      entry.tryAgain = !neverSucceeds(answer.text);
   }
}

// The helper has forgotten the configuration; there is nothing to record the answer in. What was
// never programmed cannot be removed, and is as good as removed.
void PolicyAgent::takeRemovalAnswer(PolicyEntry& entry, const Answer& answer) {
   entry.overdue = false;
   if (answer.type == OruPostcardTelemetry::statusSuccess || neverSucceeds(answer.text)) {
      retryTime_ = options_.retryTime;
      entry.held.clear();
   } else {
      entry.held = "the rules client still holds it: " + answer.text.str();
   }
   settleWithoutRules(entry);
}

void PolicyAgent::timeUp() {
   if (inFlight_) {
      expired_ = inFlight_;
      inFlight_.reset();
      tellOverdue(*expired_);
   } else {
      retryArmed_ = false;
      retryTime_ = std::min(retryTime_ * 2, options_.longestRetryTime);
      retry(false);
   }
   pump();
}

void PolicyAgent::tellOverdue(const Request& request) {
   const auto found = entries_.find(request.key);
   if (found == entries_.end()) {
      return;
   }
   PolicyEntry& entry = found->second;
   entry.state = PolicyState::waiting; // and since it failed, if it did
   entry.overdue = true;
   entry.tryAgain = true;
   entry.text =
         helper_->handlePendingOperationTimeout(entry.made->data, matchOptionOf(request.key.second))
               .str();
}

// Has the next attempt made of what was lost, and of what was refused for now unless `onlyOverdue`.
void PolicyAgent::retry(bool onlyOverdue) {
   for (auto& [key, entry] : entries_) {
      if (entry.tryAgain && (entry.overdue || !onlyOverdue)) {
         entry.tryAgain = false;
         entry.due = true;
         queue_.push_back(key);
      }
   }
}

void PolicyAgent::armRetry() {
   const bool wanted =
         std::ranges::any_of(entries_, [](const auto& item) { return item.second.tryAgain; });
   if (wanted && !retryArmed_) {
      hooks_.timer(retryTime_);
   } else if (!wanted && retryArmed_) {
      hooks_.timer(std::nullopt);
   }
   retryArmed_ = wanted;
}

// The helper keeps every answer for ever; an agent that runs for years keeps the latest.
void PolicyAgent::trimHistory(PolicyEntry& entry) const {
   auto& status = *entry.config->aclConfigStatus();
   while (status.statusInOrders() > options_.historyLength) {
      status.statusInOrderDel(status.statusInOrder().begin());
   }
}

// The helper's ACL configuration, or null.
Pello::Ptr<PostcardTelemetryAclConfig> PolicyAgent::configOf(const PolicyKey& key) const {
   Pello::Ptr<PostcardTelemetryAclConfig> found;
   // The same key that the helper gives it.
   const std::string wanted = key.first + "-" + std::string{familyName(key.second)};
   helper_.forEachAclConfig([&](PostcardTelemetryAclConfig& config) {
      if (config.aclConfigKey() == std::string_view{wanted}) {
         found = &config;
      }
   });
   return found;
}

} // namespace Postcard::Agent
