// The answers of the rules client, and the next attempts at requests that were lost or refused.
#include "Kiv/System.h"
#include "postcard/agent/PolicyAgent.h"
#include "postcard/policy/PolicyBuilder.h"

#include <algorithm>
#include <optional>

namespace Postcard::Agent {

// Finds the request that is answered by its counter. A rules client may answer late, twice, or for
// a request of which the agent knows nothing.
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
      return; // an answer to an older request; the one in flight still has time
   }
   retry(Which::overdue); // the rules client is alive
   pump();
}

// The helper records the answer in the configuration that the latest request was about. Therefore
// only the answer to the latest request comes here.
void PolicyAgent::takeAnswer(const Request& request, const Answer& answer) {
   PolicyEntry* found = entries_.find(request.key);
   if (found == nullptr) {
      return;
   }
   PolicyEntry& entry = *found;
   if (request.removal) {
      return takeRemovalAnswer(entry, answer);
   }
   if (entry.config == nullptr) {
      return; // the helper has no configuration to record it in, and would end the process
   }
   helper_.updatePolicyStatus(answer.type, answer.text);
   entry.answers.push_back({answer.request, Kiv::System::currentTime(), answer.outcome.succeeded(),
                            answer.text.str()});
   trimHistory(entry);
   if (answer.outcome.succeeded()) {
      retryTime_ = options_.retryTime; // the rules client works: attempts begin with the short time
      leave(entry, Residue::none);     // the new version has replaced whatever was left
      return settle(entry, PolicyState::programmed, answer.text.str());
   }
   settle(entry, PolicyState::failed, answer.text.str());
   if (!answer.outcome.isPermanent()) {
      tryLater(entry);
   }
}

// The helper has deleted the configuration, so there is no history to record the answer in. A
// permanent refusal of a removal means that the rules client holds no such ACL, which is just what
// was wanted.
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

// There is one timer with two uses: the answer time while a request is in flight, and the time to
// the next attempt otherwise.
void PolicyAgent::timeUp() {
   if (inFlight_) {
      expired_ = inFlight_; // its answer may still come
      inFlight_.reset();
      tellOverdue(*expired_);
   } else {
      retryArmed_ = false;
      retryTime_ = std::min(retryTime_ * 2, options_.longestRetryTime);
      retry(Which::all);
   }
   pump();
}

// Marks the entry of the request as overdue, with the helper's text for the operator.
void PolicyAgent::tellOverdue(const Request& request) {
   PolicyEntry* found = entries_.find(request.key);
   if (found == nullptr) {
      return;
   }
   PolicyEntry& entry = *found;
   // Not by `settle`, which would set `since`: the trouble began with the failure before, if there
   // was one.
   entry.state = PolicyState::waiting;
   entry.overdue = true;
   tryLater(entry);
   entry.text =
         helper_->handlePendingOperationTimeout(entry.made->data, matchOptionOf(request.key.second))
               .str();
}

// Queues requests that were lost and, unless `which` is `overdue`, those that were refused for now.
void PolicyAgent::retry(Which which) {
   for (PolicyKey& key : entries_.takeWaiting(which)) {
      queue_.push_back(std::move(key));
   }
}

// Lets the timer run for the next attempt exactly when an entry waits for one. A timer that runs is
// left alone, so that the retry time is not prolonged. Called only when nothing is in flight: the
// answer time needs the timer then.
void PolicyAgent::armRetry() {
   const bool wanted = entries_.anyWaits();
   if (wanted && !retryArmed_) {
      hooks_.timer(retryTime_);
   } else if (!wanted && retryArmed_) {
      hooks_.timer(std::nullopt);
   }
   retryArmed_ = wanted;
}

// Drops the oldest answers beyond the limit: the helper keeps all, and an agent may run for years.
void PolicyAgent::trimHistory(PolicyEntry& entry) const {
   auto& status = *entry.config->aclConfigStatus();
   while (status.statusInOrders() > options_.historyLength) {
      status.statusInOrderDel(status.statusInOrder().begin());
   }
   if (entry.answers.size() > options_.historyLength) {
      entry.answers.erase(entry.answers.begin());
   }
}

} // namespace Postcard::Agent
