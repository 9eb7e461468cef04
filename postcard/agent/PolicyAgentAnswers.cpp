// The answers of the rules client, and what is tried again when there is none or a bad one.
#include "postcard/agent/PolicyAgent.h"
#include "postcard/policy/PolicyBuilder.h"

#include <algorithm>
#include <optional>

namespace Postcard::Agent {

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
      return; // to an earlier request; the one in flight still has time
   }
   retry(Which::overdue); // the rules client lives
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
      return; // the helper has deleted it since
   }
   helper_.updatePolicyStatus(answer.type, answer.text);
   trimHistory(entry);
   if (answer.outcome.succeeded()) {
      retryTime_ = options_.retryTime;
      leave(entry, Residue::none); // the new version has replaced it
      return settle(entry, PolicyState::programmed, answer.text.str());
   }
   settle(entry, PolicyState::failed, answer.text.str());
   if (!answer.outcome.isPermanent()) {
      tryLater(entry);
   }
}

// The helper has deleted the configuration, so there is no history to record the answer in. A
// removal that can never succeed is of an ACL that the rules client does not hold.
void PolicyAgent::takeRemovalAnswer(PolicyEntry& entry, const Answer& answer) {
   entry.overdue = false;
   if (answer.outcome.succeeded() || answer.outcome.isPermanent()) {
      retryTime_ = options_.retryTime;
      leave(entry, Residue::none);
   } else {
      leave(entry, Residue::refusedRemoval, answer.text.str());
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
      retry(Which::all);
   }
   pump();
}

void PolicyAgent::tellOverdue(const Request& request) {
   const auto found = entries_.find(request.key);
   if (found == entries_.end()) {
      return;
   }
   PolicyEntry& entry = found->second;
   entry.state = PolicyState::waiting; // `since` stays: a failure lasts until there is an answer
   entry.overdue = true;
   tryLater(entry);
   entry.text =
         helper_->handlePendingOperationTimeout(entry.made->data, matchOptionOf(request.key.second))
               .str();
}

// Queues requests that were lost and, unless `which` is `overdue`, those that were refused for now.
void PolicyAgent::retry(Which which) {
   for (auto& [key, entry] : entries_) {
      if (entry.retry == Retry::later && (entry.overdue || which == Which::all)) {
         entry.retry = Retry::now;
         queue_.push_back(key);
      }
   }
}

void PolicyAgent::armRetry() {
   const bool wanted = std::ranges::any_of(
         entries_, [](const auto& item) { return item.second.retry == Retry::later; });
   if (wanted && !retryArmed_) {
      hooks_.timer(retryTime_);
   } else if (!wanted && retryArmed_) {
      hooks_.timer(std::nullopt);
   }
   retryArmed_ = wanted;
}

// The helper keeps every answer, and an agent may run for years: drops the oldest beyond the limit.
void PolicyAgent::trimHistory(PolicyEntry& entry) const {
   auto& status = *entry.config->aclConfigStatus();
   while (status.statusInOrders() > options_.historyLength) {
      status.statusInOrderDel(status.statusInOrder().begin());
   }
}

} // namespace Postcard::Agent
