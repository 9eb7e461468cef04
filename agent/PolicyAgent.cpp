#include "agent/PolicyAgent.h"

#include "Kiv/System.h"
#include "agent/PolicyBuilder.h"
#include "agent/PolicyDiff.h"

#include <algorithm>

namespace Agent {

namespace {

using OruPostcardTelemetry::PostcardTelemetryAclConfig;

constexpr Family families[] = {Family::ipv4, Family::ipv6};

// Identifier of the answer's counter in the rules client's record.
constexpr U16 kickResponseId = 132;

// Calls `visit(policy, family)` for every family of every policy to which interfaces are attached.
template <class Visit>
void forEachAttached(const PolicyFile& file, Visit&& visit) {
   for (const Policy& policy : file.policies) {
      for (const Family family : families) {
         if (!policy.interfaces(family).empty()) {
            visit(policy, family);
         }
      }
   }
}

// The policy of that name, or null.
const Policy* policyOf(const PolicyFile& file, const std::string& name) {
   const auto found = std::ranges::find_if(
         file.policies, [&](const Policy& policy) { return policy.name.text == name; });
   return found == file.policies.end() ? nullptr : &*found;
}

// The same key that a helper gives the policy's ACL configuration.
std::string aclConfigKey(const std::string& name, Family family) {
   return name + "-" + std::string{familyName(family)};
}

} // namespace

std::string_view policyStateName(PolicyState state) {
   switch (state) {
   case PolicyState::invalid:
      return "invalid";
   case PolicyState::unsupported:
      return "unsupported";
   case PolicyState::empty:
      return "empty";
   case PolicyState::waiting:
      return "waiting";
   case PolicyState::programmed:
      return "programmed";
   case PolicyState::failed:
      return "failed";
   case PolicyState::removed:
      return "removed";
   }
   return "?";
}

PolicyAgent::PolicyAgent(const PluginHost& host, PolicyFile file, Options options, Hooks hooks)
   : host_{host},
     options_{options},
     hooks_{std::move(hooks)},
     file_{std::move(file)},
     requests_{OruPostcardTelemetry::postcardTelemetryRulesClientSmConfigFactory()},
     answers_{OruPostcardTelemetry::postcardTelemetryRulesClientSmStatusFactory()},
     hwCapability_{buildHwCapability(file_.hardware)},
     helper_{host.makeHelper(requests_, hwCapability_)} {
   // The answer is taken from the event loop, not inside the rules client's own call.
   answerSubscription_ = answers_->publisher()->subscribe([this](const Pello::Change& change) {
      if (change.attribute == kickResponseId) {
         hooks_.later([this] { answered(); });
      }
   });
}

PolicyAgent::~PolicyAgent() = default;

void PolicyAgent::start() {
   adopt(file_);
   forEachAttached(file_, [&](const Policy& policy, Family family) {
      push(Verb::build, {policy.name.text, family});
   });
   pump();
}

void PolicyAgent::push(Verb verb, const Key& key, std::string intf) {
   queue_.push_back({verb, key, std::move(intf)});
}

// Performs operations until one of them posts a request.
void PolicyAgent::pump() {
   if (pumping_) {
      return;
   }
   pumping_ = true;
   while (!inFlight_ && !queue_.empty()) {
      const Operation operation = std::move(queue_.front());
      queue_.pop_front();
      perform(operation);
   }
   pumping_ = false;
   hooks_.changed();
}

void PolicyAgent::perform(const Operation& operation) {
   const auto found = entries_.find(operation.key);
   if (found == entries_.end()) {
      return;
   }
   Entry& entry = found->second;
   switch (operation.verb) {
   case Verb::build:
      return performBuild(entry, operation.key);
   case Verb::commit:
      return performCommit(entry, operation.key);
   case Verb::remove:
      return performRemoval(entry, operation.key);
   case Verb::addIntf:
   case Verb::removeIntf:
      return performIntf(entry, operation);
   }
}

// Makes the ACL configuration, anew when there is one, and commits it.
void PolicyAgent::performBuild(Entry& entry, const Key& key) {
   const auto matchOption = matchOptionOf(key.second);
   const Kiv::String message = entry.exists ? helper_->recreatePolicy(entry.data, matchOption)
                                            : helper_->createPolicy(entry.data, matchOption);
   entry.exists = true;
   if (!message.empty()) {
      const bool unsupported = message.view().starts_with("Unsupported");
      settle(entry, unsupported ? PolicyState::unsupported : PolicyState::invalid, message.str());
      return;
   }
   performCommit(entry, key);
}

void PolicyAgent::performCommit(Entry& entry, const Key& key) {
   const auto config = configOf(key);
   if (config == nullptr) {
      return;
   }
   if (config->ruleByNames() == 0) {
      settle(entry, PolicyState::empty, "No rules configured in policy");
      return;
   }
   const U32 before = requests_->kickRequest();
   helper_->commitPolicy(entry.data, matchOptionOf(key.second));
   await(key, entry, before, false);
}

void PolicyAgent::performRemoval(Entry& entry, const Key& key) {
   if (!entry.exists) {
      settle(entry, PolicyState::removed, {});
      return;
   }
   const U32 before = requests_->kickRequest();
   helper_->deletePolicy(entry.data, matchOptionOf(key.second));
   entry.exists = false;
   await(key, entry, before, true);
   if (!inFlight_) {
      settle(entry, PolicyState::removed, {});
   }
}

void PolicyAgent::performIntf(Entry& entry, const Operation& operation) {
   const Orlix::IntfId intf{operation.intf};
   const auto matchOption = matchOptionOf(operation.key.second);
   const U32 before = requests_->kickRequest();
   if (operation.verb == Verb::addIntf) {
      helper_->addIntfToPolicy(entry.data, intf, intf, L3::VrfName{"default"}, matchOption);
   } else {
      helper_->removeIntfFromPolicy(entry.data, intf, intf, L3::VrfName{"default"}, matchOption);
   }
   await(operation.key, entry, before, false);
}

// Waits for the answer, if a request was posted since the counter read `before`.
void PolicyAgent::await(const Key& key, Entry& entry, U32 before, bool removal) {
   const U32 request = requests_->kickRequest();
   if (request == before) {
      return;
   }
   entry.generation = request;
   settle(entry, PolicyState::waiting, {});
   inFlight_ = InFlight{key, request, removal};
   expired_.reset();
   hooks_.timer(options_.answerTime);
}

void PolicyAgent::answered() {
   const U32 response = answers_->kickResponse();
   if (inFlight_ && inFlight_->request == response) {
      const InFlight request = *inFlight_;
      inFlight_.reset();
      hooks_.timer(std::nullopt);
      takeAnswer(request);
   } else if (expired_ && expired_->request == response && requests_->kickRequest() == response) {
      const InFlight request = *expired_;
      expired_.reset();
      takeAnswer(request);
   } else if (!inFlight_) {
      recommitOverdue();
   }
   pump();
}

void PolicyAgent::takeAnswer(const InFlight& request) {
   const auto found = entries_.find(request.key);
   if (found == entries_.end()) {
      return;
   }
   Entry& entry = found->second;
   const Pello::String text = answers_->status();
   const auto type = answers_->statusType();
   const bool success = type == OruPostcardTelemetry::statusSuccess;
   if (request.removal) {
      // The helper has forgotten the configuration; there is nothing to record the answer in. What
      // was never programmed cannot be removed, and is as good as removed.
      const bool gone = success || text.view().starts_with("invalid:");
      settle(entry, gone ? PolicyState::removed : PolicyState::failed,
             gone ? std::string{} : text.str());
   } else {
      helper_.updatePolicyStatus(type, text);
      trimHistory(request.key);
      settle(entry, success ? PolicyState::programmed : PolicyState::failed, text.str());
   }
   recommitOverdue();
}

// The rules client answers again: policies whose answers were lost are posted once more. A removal
// cannot be, because the helper has forgotten the configuration.
void PolicyAgent::recommitOverdue() {
   for (auto& [key, entry] : entries_) {
      if (entry.overdue && entry.exists) {
         entry.overdue = false;
         push(Verb::commit, key);
      } else if (entry.overdue) {
         settle(entry, PolicyState::removed, "the rules client has not confirmed the removal");
      }
   }
}

void PolicyAgent::timeUp() {
   if (!inFlight_) {
      return;
   }
   const InFlight request = *inFlight_;
   inFlight_.reset();
   expired_ = request;
   const auto found = entries_.find(request.key);
   if (found != entries_.end()) {
      Entry& entry = found->second;
      entry.overdue = true;
      entry.text =
            helper_->handlePendingOperationTimeout(entry.data, matchOptionOf(request.key.second))
                  .str();
   }
   pump();
}

// The helper keeps every answer for ever; an agent that runs for years keeps the latest.
void PolicyAgent::trimHistory(const Key& key) {
   const auto config = configOf(key);
   auto& status = *config->aclConfigStatus();
   while (status.statusInOrders() > options_.historyLength) {
      status.statusInOrderDel(status.statusInOrder().begin());
   }
}

void PolicyAgent::settle(Entry& entry, PolicyState state, std::string text) {
   entry.state = state;
   entry.text = std::move(text);
   entry.since = Kiv::System::currentTime();
   entry.overdue = false;
}

Pello::Ptr<PostcardTelemetryAclConfig> PolicyAgent::configOf(const Key& key) const {
   Pello::Ptr<PostcardTelemetryAclConfig> found;
   const std::string wanted = aclConfigKey(key.first, key.second);
   helper_.forEachAclConfig([&](PostcardTelemetryAclConfig& config) {
      if (config.aclConfigKey() == std::string_view{wanted}) {
         found = &config;
      }
   });
   return found;
}

// Makes the file the agent's own, with an entry for each policy and family of it.
void PolicyAgent::adopt(const PolicyFile& file) {
   std::size_t order = 0;
   for (const Policy& policy : file.policies) {
      const Pello::Ptr<const PolicyMap::PolicyMapSmCommonData> data = buildPolicy(policy);
      for (const Family family : families) {
         if (!policy.interfaces(family).empty()) {
            Entry& entry = entries_[{policy.name.text, family}];
            entry.data = data;
            entry.order = order++;
            entry.since = entry.since == 0 ? Kiv::System::currentTime() : entry.since;
         }
      }
   }
}

// The first refusal, or the empty text.
std::string PolicyAgent::tryOnScratch(const PolicyFile& file) const {
   const auto capability = buildHwCapability(file.hardware);
   std::string refusals;
   for (const Policy& policy : file.policies) {
      const auto data = buildPolicy(policy);
      const HelperHandle scratch = host_.makeHelper(
            OruPostcardTelemetry::postcardTelemetryRulesClientSmConfigFactory(), capability);
      for (const Family family : families) {
         if (policy.interfaces(family).empty()) {
            continue;
         }
         const Kiv::String message = scratch->createPolicy(data, matchOptionOf(family));
         if (!message.empty()) {
            refusals += policy.name.text + " " + std::string{familyName(family)} + ": " +
                        message.str() + "\n";
         }
      }
   }
   return refusals;
}

ReloadResult PolicyAgent::reload(const PolicyFile& file) {
   if (file.featureToggles != file_.featureToggles) {
      return {false, "feature toggles are read once: restart the agent to change them\n"};
   }
   if (std::string refusals = tryOnScratch(file); !refusals.empty()) {
      return {false, std::move(refusals)};
   }
   const std::size_t before = queue_.size();
   change(file);
   const std::size_t planned = queue_.size() - before;
   pump();
   return {true, std::to_string(planned) + (planned == 1 ? " operation\n" : " operations\n")};
}

// Plans what leads from the present file to `file`: removals first, so that what they free can be
// used.
void PolicyAgent::change(const PolicyFile& file) {
   std::erase_if(entries_,
                 [](const auto& item) { return item.second.state == PolicyState::removed; });
   const bool hardwareChanged = file.hardware.tcpFlags != file_.hardware.tcpFlags;
   hwCapability_->tcpFlagsSupportedIs(file.hardware.tcpFlags);
   const PolicyFile old = std::exchange(file_, file);
   adopt(file_);
   forEachAttached(old, [&](const Policy& policy, Family family) {
      const Policy* now = policyOf(file_, policy.name.text);
      if (now == nullptr || now->interfaces(family).empty()) {
         const Key key{policy.name.text, family};
         entries_[key].order = file_.policies.size() * std::size(families);
         push(Verb::remove, key);
      }
   });
   forEachAttached(file_, [&](const Policy& policy, Family family) {
      plan(policy, policyOf(old, policy.name.text), family, hardwareChanged);
   });
}

// What has to be done for a policy that the file has.
void PolicyAgent::plan(const Policy& policy, const Policy* old, Family family,
                       bool hardwareChanged) {
   const Key key{policy.name.text, family};
   if (old == nullptr || old->interfaces(family).empty()) {
      return push(Verb::build, key);
   }
   const auto added = namesAdded(old->interfaces(family), policy.interfaces(family));
   const auto gone = namesAdded(policy.interfaces(family), old->interfaces(family));
   const Entry& entry = entries_.at(key);
   const bool sameClasses = !hardwareChanged && samePolicyClasses(*old, policy, family);
   if (sameClasses && added.empty() && gone.empty()) {
      return;
   }
   if (!sameClasses || entry.state != PolicyState::programmed) {
      // A helper posts nothing for a policy without rules, so hardware would keep the old ones.
      const bool emptied = std::ranges::none_of(
            policy.classes, [&](const Class& from) { return from.filter(family) != nullptr; });
      if (emptied) {
         push(Verb::remove, key);
      }
      return push(Verb::build, key);
   }
   for (const std::string& intf : added) {
      push(Verb::addIntf, key, intf);
   }
   for (const std::string& intf : gone) {
      push(Verb::removeIntf, key, intf);
   }
}

void PolicyAgent::deleteAll() {
   queue_.clear();
   for (const auto& [key, entry] : entries_) {
      if (entry.state != PolicyState::removed) {
         push(Verb::remove, key);
      }
   }
   pump();
}

std::vector<PolicyReport> PolicyAgent::report() const {
   std::map<std::string, std::vector<std::string>, std::less<>> histories;
   helper_.forEachAclConfig([&](const PostcardTelemetryAclConfig& config) {
      auto& history = histories[config.aclConfigKey().str()];
      for (const auto& status : config.aclConfigStatus()->statusInOrder()) {
         history.push_back(status.value().str());
      }
   });
   std::vector<std::pair<std::size_t, PolicyReport>> ordered;
   ordered.reserve(entries_.size());
   for (const auto& [key, entry] : entries_) {
      ordered.emplace_back(entry.order,
                           PolicyReport{key.first, key.second, entry.state, entry.text,
                                        entry.generation, entry.since, entry.overdue,
                                        histories[aclConfigKey(key.first, key.second)]});
   }
   std::ranges::stable_sort(ordered, {}, [](const auto& item) { return item.first; });
   std::vector<PolicyReport> reports;
   reports.reserve(ordered.size());
   for (auto& [order, report] : ordered) {
      reports.push_back(std::move(report));
   }
   return reports;
}

} // namespace Agent
