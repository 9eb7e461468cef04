// The steps of a policy: the calls of the helper, and the requests that the helper posts in them.
#include "postcard/agent/PolicyAgent.h"
#include "postcard/host/HelperMessage.h"
#include "postcard/policy/PolicyBuilder.h"

#include <utility>

namespace Postcard::Agent {

namespace {

// The key of the helper's configuration: the name of the policy, a dash, and the family.
std::string aclKeyOf(const PolicyKey& key) {
   return key.first + "-" + std::string{familyName(key.second)};
}

} // namespace

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

// Makes the ACL configuration from `wanted` and commits it, unless the helper refuses the policy.
void PolicyAgent::build(PolicyEntry& entry, const PolicyKey& key) {
   const auto matchOption = matchOptionOf(key.second);
   // Asked before the helper replaces the configuration.
   const bool posted = entry.config != nullptr && entry.config->rulesClientUpdated();
   const Kiv::String message = entry.config != nullptr
                                     ? helper_->recreatePolicy(entry.wanted->data, matchOption)
                                     : helper_->createPolicy(entry.wanted->data, matchOption);
   entry.made = entry.wanted; // also when it is refused: the same version is not built again
   entry.config = nullptr;
   const bool isMade = configs_.has(aclKeyOf(key));
   if (!isMade) {
      entry.answers.clear(); // they went with the configuration
   }
   if (!isMade && posted) {
      leave(entry, Residue::earlierVersion);
   }
   if (Host::kindOf(message.view()) != Host::HelperMessageKind::success) {
      entry.config = configs_.find(aclKeyOf(key)); // with the rules before the class in question
      return settle(entry, refusedState(message.view()), message.str());
   }
   // A helper of somebody else may report success and have no configuration under the usual key.
   if (!isMade) {
      return settle(entry, PolicyState::invalid, "the helper made no ACL configuration");
   }
   commit(entry, key, Attempt::first);
}

// Requires that the helper has a configuration. `entry.config` may still be null after `build`: the
// request tells which it is, and only for a policy without rules the collection must be walked.
void PolicyAgent::commit(PolicyEntry& entry, const PolicyKey& key, Attempt attempt) {
   // Cleared even if no request follows: this step would be due for ever otherwise.
   const bool isDue = entry.retry == Retry::now;
   if (isDue) {
      entry.retry = Retry::none;
   }
   const U32 before = requests_->kickRequest();
   helper_->commitPolicy(entry.made->data, matchOptionOf(key.second));
   if (requests_->kickRequest() != before) {
      configs_.learn(*requests_);
   }
   entry.config = configs_.find(aclKeyOf(key));
   if (entry.config->ruleByNames() != 0) {
      await(key, entry, before, attempt);
   } else if (entry.config->rulesClientUpdated() || (isDue && entry.residue != Residue::none)) {
      // The helper posts nothing for a policy without rules, and hardware would keep the rules of
      // the version before. The policy is built again when the removal is confirmed.
      remove(entry, key);
   } else {
      settleWithoutRules(entry);
   }
}

// Deletes the configuration in the helper, which posts a request if the rules client was told of
// it. For a residue, the configuration is made once more so that the helper can delete it again.
void PolicyAgent::remove(PolicyEntry& entry, const PolicyKey& key) {
   const Attempt attempt = entry.residue == Residue::none ? Attempt::first : Attempt::again;
   if (entry.config == nullptr && !makeAgainToRemove(entry, key)) {
      entry.retry = Retry::none;
      return settleWithoutRules(entry);
   }
   if (entry.residue != Residue::none) {
      // The configuration that the helper has deleted knew that the rules client was told of it.
      // Without this flag the helper would delete the new one silently.
      entry.config->rulesClientUpdatedIs(true);
   }
   const U32 before = requests_->kickRequest();
   helper_->deletePolicy(entry.made->data, matchOptionOf(key.second));
   entry.config = nullptr;
   entry.answers.clear();
   await(key, entry, before, attempt);
   // No request was in flight before this step, so one that is now is the removal.
   if (inFlight_) {
      leave(entry, Residue::unconfirmedRemoval);
   } else {
      settleWithoutRules(entry);
   }
}

// Makes the configuration of the version `made` once more, because the helper deletes only what it
// has. The message of the helper does not matter: the configuration is deleted at once. Returns
// whether the helper has the configuration.
bool PolicyAgent::makeAgainToRemove(PolicyEntry& entry, const PolicyKey& key) {
   helper_->createPolicy(entry.made->data, matchOptionOf(key.second));
   entry.config = configs_.find(aclKeyOf(key));
   return entry.config != nullptr;
}

// Attaches or detaches the interface of `step`. A policy file knows neither VRFs nor interfaces
// that are parts of others, so both interface arguments are the same.
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

// Puts the request in flight that was posted since the request counter read `before`; does nothing
// when none was posted, because not every call of the helper posts one. An overdue entry, and a
// failed one that is tried again, keep their state until there is an answer, so that the report
// says how long the trouble has lasted.
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
   entry.retry = Retry::none;
   inFlight_ = Request{key, request, entry.config == nullptr};
   expired_.reset();    // it is not the latest request any more
   retryArmed_ = false; // the timer serves the answer time now
   hooks_.timer(options_.answerTime);
}

} // namespace Postcard::Agent
