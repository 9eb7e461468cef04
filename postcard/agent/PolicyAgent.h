// `PolicyAgent`: the policy-map machinery around a helper. It makes the policies of a file, posts
// their requests to the rules client one at a time, takes the answers, and applies the changes of a
// new file. Relies on the plug-in host, and on `PolicyPlan` for the steps that a policy needs. Time
// and the event loop belong to the caller (`Hooks`), so that tests can set the clock.
//
// The request record has one slot. Therefore policies wait in a queue. The next step begins when
// the rules client has answered the latest request, or when the time for that answer is up.
//
// A late answer is taken as long as its request is the latest one. An answer to an older request
// only shows that the rules client is alive. After every answer the overdue requests are posted
// again, except after an older answer that comes while another request is in flight. Without an
// answer, overdue requests and those that were refused temporarily are posted again when the queue
// is empty and the retry time has passed.
//
// All functions are called on one thread, which is that of the event loop.
#pragma once

#include "postcard/agent/AclConfigs.h"
#include "postcard/agent/EntryTable.h"
#include "postcard/agent/PolicyPlan.h"
#include "postcard/agent/PolicyReport.h"
#include "postcard/host/PluginHost.h"
#include "postcard/host/RuleOrigin.h"
#include "postcard/rules-client/Records.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Postcard::Agent {

class PolicyAgent {
 public:
   // What the agent needs from its caller. None of the functions may be empty.
   struct Hooks {
      // Must run the given function once, after the present caller has returned to the event loop.
      // The function refers to the agent: it must not run after the agent is destroyed.
      std::function<void(std::function<void()>)> later;
      // Must call `timeUp` once after the given time. A new call replaces the timer that runs;
      // nullopt stops it. There is only one timer.
      std::function<void(std::optional<std::chrono::milliseconds>)> timer;
      // Called when the result of `report`, `idle` or `settled` may have changed. May call the
      // const functions of the agent and `takeChanges`, and no others.
      std::function<void()> changed;
   };

   struct Options {
      std::chrono::milliseconds answerTime{10'000}; // until a request counts as overdue
      std::size_t historyLength = 100;              // answers kept per policy and family
      // The time from the moment when the queue is empty to the next attempt at requests that were
      // lost or refused temporarily. It doubles with every such attempt, up to `longestRetryTime`;
      // a success or a new file sets it back.
      std::chrono::milliseconds retryTime{1'000};
      std::chrono::milliseconds longestRetryTime{60'000};
   };

   // Makes the helper and its records; takes no step before `start`. `host` must outlive the agent;
   // `file` is copied. The file's feature toggles must be in force already
   // (`Policy::applyFeatureToggles`).
   PolicyAgent(const Host::PluginHost& host, const Policy::PolicyFile& file, Options options,
               Hooks hooks);
   PolicyAgent(const PolicyAgent&) = delete;
   PolicyAgent& operator=(const PolicyAgent&) = delete;
   ~PolicyAgent();

   // The record that the agent posts requests in, and the record that the rules client answers in.
   // Never null; the same objects as long as the agent lives.
   const Pello::Ptr<RulesClient::RequestRecord>& requests() const { return requests_; }
   const Pello::Ptr<RulesClient::StatusRecord>& answers() const { return answers_; }

   // Begins to create and commit every policy of the file. Call it once, when a rules client
   // listens: a request that is posted before is not heard, and is overdue after `answerTime`.
   void start();

   // What a reload does with a file of which the helper refuses a policy.
   enum class Refused : bool {
      nothingIsDone, // the file is refused as a whole
      isLeftOut,     // the others are programmed; the refused policies get the state that says so
   };

   // What the helper refuses of the file that the agent was made with, as a reload would report it.
   std::vector<ReloadFinding> refusals() const;

   // Replaces the desired state by the policies of `file`, all of them or none. They are first
   // compiled on scratch helpers, and the live helper changes only when these refuse nothing, or
   // when `refused` allows it. Steps for the file before that have not begun are dropped. A file
   // with other feature toggles than the first one is refused. Returns why the file is refused, or
   // the number of steps that it takes and what is left out. The steps may still be going on after
   // the return.
   ReloadResult reload(const Policy::PolicyFile& file, Refused refused = Refused::nothingIsDone);

   // Begins to delete every policy. It is done when `settled` returns true; `report` then says
   // which policies could not be deleted.
   void deleteAll();

   // Whether no policy is queued and no request is in flight.
   bool idle() const { return queue_.empty() && !inFlight_; }
   // Whether the agent is idle and no request waits for another attempt.
   bool settled() const { return idle() && !retryArmed_; }

   // To be called when the timer that `Hooks::timer` set has run out.
   void timeUp();

   // A report for every policy and family: those of the file in its order, and behind them those
   // that are gone from it, by name.
   std::vector<PolicyReport> report() const;

   // The reports that may have changed since the previous call, and the policies that were dropped.
   // Takes time in proportion to their number, not to the number of all policies.
   Changes takeChanges() { return entries_.takeChanges(); }
   // How many reports there are.
   std::size_t size() const { return entries_.size(); }
   // What whoever waits for the policies wants to know. Looks at all entries.
   Outlook outlook() const { return entries_.outlook(); }
   // Whether the file wants a policy.
   bool wantsAny() const { return entries_.wantsAny(); }
   // How many entries the agent has looked at so far: a measure of its work.
   std::uint64_t looks() const { return entries_.looks(); }

   // Writes all ACL configurations as the show command prints them to the descriptor `fd`, which
   // stays open. Write errors are ignored.
   void show(U32 fd) const { helper_.showPostcardAcl(fd); }
   // Calls `visit` with every ACL configuration, in no particular order. The helper owns the
   // configurations; `visit` must not change them.
   void forEachAclConfig(
         const std::function<void(OruPostcardTelemetry::PostcardTelemetryAclConfig&)>& visit)
         const {
      helper_.forEachAclConfig(visit);
   }
   // The same, with what the helper was given last to make it of; null when nobody knows.
   void forEachAcl(const std::function<void(const OruPostcardTelemetry::PostcardTelemetryAclConfig&,
                                            const Host::CompiledPolicy*)>& visit) const;

 private:
   // A copy of the status record at the moment when the rules client published its counter.
   struct Answer {
      U32 request; // the counter of the request that is answered
      OruPostcardTelemetry::PostcardTelemetryRulesClientSmStatusType type;
      Pello::String text;
      RulesClient::Outcome outcome; // what `type` and `text` mean
   };

   // Whether a request is made for the first time, or because an earlier one was lost or refused.
   enum class Attempt : std::uint8_t { first, again };

   // A request that was posted and has no answer yet.
   struct Request {
      PolicyKey key;
      U32 number;   // its counter
      bool removal; // it removes a configuration that the helper has deleted already
   };

   // The functions below are grouped by source: PolicyAgent.cpp, PolicyAgentSteps.cpp,
   // PolicyAgentAnswers.cpp.
   void hear();
   void adopt(const std::vector<std::shared_ptr<const PolicyVersion>>& versions);
   void want(const std::shared_ptr<const PolicyVersion>& version, Policy::Family family,
             std::size_t order);
   void enqueueAll();
   std::size_t stepsLeft();
   void pump();
   void perform(const Step& step, PolicyEntry& entry, const PolicyKey& key);
   void build(PolicyEntry& entry, const PolicyKey& key);
   void commit(PolicyEntry& entry, const PolicyKey& key, Attempt attempt);
   void remove(PolicyEntry& entry, const PolicyKey& key);
   bool makeAgainToRemove(PolicyEntry& entry, const PolicyKey& key);
   void changeIntf(const Step& step, PolicyEntry& entry, const PolicyKey& key);
   void await(const PolicyKey& key, PolicyEntry& entry, U32 before, Attempt attempt);
   void answered(const Answer& answer);
   void takeAnswer(const Request& request, const Answer& answer);
   void takeRemovalAnswer(PolicyEntry& entry, const Answer& answer);
   void tellOverdue(const Request& request);
   void retry(Which which);
   void armRetry();
   void trimHistory(PolicyEntry& entry) const;

   const Host::PluginHost& host_;
   const Policy::Hardware hardware_; // of the file that the agent was made with
   Options options_;
   Hooks hooks_;
   Policy::ToggleMap featureToggles_;
   Pello::Ptr<RulesClient::RequestRecord> requests_;
   Pello::Ptr<RulesClient::StatusRecord> answers_;
   Pello::Ptr<PostcardTelemetry::HwCapability> hwCapability_;
   Host::HelperHandle helper_;
   AclConfigs configs_; // of `helper_`
   EntryTable entries_;
   std::deque<PolicyKey> queue_;     // policies whose steps are due; may name entries that are gone
   std::optional<Request> inFlight_; // absent: none; present exactly while its answer time runs
   std::optional<Request> expired_;  // the latest request, after its answer time was up
   std::chrono::milliseconds retryTime_; // until the next attempt; see Options::retryTime
   bool retryArmed_ = false;             // the timer runs for the next attempt
   Pello::Publisher::Subscription answerSubscription_;
};

} // namespace Postcard::Agent
