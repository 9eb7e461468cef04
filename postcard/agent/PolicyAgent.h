// `PolicyAgent`: the policy-map machinery around a helper. It makes the policies of a file, posts
// their requests to the rules client one at a time, takes the answers, and changes what a new file
// changes. Relies on the plug-in host and on `PolicyPlan`, which says what has to be done; time and
// the event loop are the caller's (`Hooks`), so that tests turn the clock.
//
// The request record has one slot. Therefore policies wait in a queue, and the next step begins
// when the rules client has answered the request before, or the time for that answer is up. An
// answer that comes after its time is still taken while its request is the latest one; later it
// only shows that the rules client lives. Overdue requests are posted again at every sign of life.
// Without one they are posted again, together with requests that were refused for now, when the
// queue is empty and the retry time has passed.
#pragma once

#include "postcard/agent/PolicyPlan.h"
#include "postcard/agent/PolicyReport.h"
#include "postcard/host/PluginHost.h"
#include "postcard/rules-client/Records.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Postcard::Agent {

class PolicyAgent {
 public:
   // What the agent needs of its surroundings.
   struct Hooks {
      // Runs the function soon, after the caller has returned to the event loop.
      std::function<void(std::function<void()>)> later;
      // Calls `timeUp` once after the time; a new call replaces the old one, null stops it.
      std::function<void(std::optional<std::chrono::milliseconds>)> timer;
      // Called after every change of what `report` returns; also when it may not have changed.
      std::function<void()> changed;
   };

   struct Options {
      std::chrono::milliseconds answerTime{10'000}; // how long a request may take
      std::size_t historyLength = 100;              // answers kept per policy and family
      // How long after a lost answer or a refusal the request is posted again. It doubles with
      // every attempt in vain, up to the longest.
      std::chrono::milliseconds retryTime{1'000};
      std::chrono::milliseconds longestRetryTime{60'000};
   };

   // Nothing runs before `start`. `host` must outlive the agent. Throws PluginError when the helper
   // cannot be made.
   PolicyAgent(const Host::PluginHost& host, const Policy::PolicyFile& file, Options options,
               Hooks hooks);
   PolicyAgent(const PolicyAgent&) = delete;
   PolicyAgent& operator=(const PolicyAgent&) = delete;
   ~PolicyAgent();

   // The records that a rules client reads and writes; never null, and the same all the time.
   const Pello::Ptr<RulesClient::RequestRecord>& requests() const { return requests_; }
   const Pello::Ptr<RulesClient::StatusRecord>& answers() const { return answers_; }

   // Creates and commits every policy of the file.
   void start();

   // Makes the policies those of `file`, all or none: all of them are first made on a scratch
   // helper, and the live helper changes only when that refuses none. Steps that the file before
   // asked for and that have not begun are dropped. Feature toggles cannot change. Returns why the
   // file is refused, or how many steps it takes; the steps go on after the return.
   ReloadResult reload(const Policy::PolicyFile& file);

   // Begins to delete every policy; `settled` tells when that is done.
   void deleteAll();

   // Whether no step is left to be taken now and no answer is awaited.
   bool idle() const { return queue_.empty() && !inFlight_; }
   // Whether, besides, no request waits for another attempt.
   bool settled() const { return idle() && !retryArmed_; }

   // The time that was asked of `Hooks::timer` is up.
   void timeUp();

   // Every policy and family, in the order of the file, removed ones last.
   std::vector<PolicyReport> report() const;

   // Writes the show text of all ACL configurations to the descriptor `fd`.
   void show(U32 fd) const { helper_.showPostcardAcl(fd); }
   // Shows every ACL configuration, in no particular order.
   void forEachAclConfig(
         const std::function<void(OruPostcardTelemetry::PostcardTelemetryAclConfig&)>& visit)
         const {
      helper_.forEachAclConfig(visit);
   }

 private:
   // What the rules client had written when it published the counter.
   struct Answer {
      U32 request; // counter
      OruPostcardTelemetry::PostcardTelemetryRulesClientSmStatusType type;
      Pello::String text;
      RulesClient::Outcome outcome; // what type and text mean
   };

   // Whether a request is made for the first time, or because the one before was lost or refused.
   enum class Attempt : std::uint8_t { first, again };

   // Which of the requests that wait for another attempt.
   enum class Which : std::uint8_t { overdue, all };

   // A request that awaits its answer.
   struct Request {
      PolicyKey key;
      U32 number;
      bool removal; // of a configuration that the helper has deleted
   };

   void hear();
   void adopt(const std::vector<std::shared_ptr<const PolicyVersion>>& versions);
   void want(const std::shared_ptr<const PolicyVersion>& version, Policy::Family family,
             std::size_t order);
   void enqueueAll();
   std::size_t stepsLeft() const;
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
   Pello::Ptr<OruPostcardTelemetry::PostcardTelemetryAclConfig>
   configOf(const PolicyKey& key) const;

   const Host::PluginHost& host_;
   Options options_;
   Hooks hooks_;
   Policy::ToggleMap featureToggles_;
   Pello::Ptr<RulesClient::RequestRecord> requests_;
   Pello::Ptr<RulesClient::StatusRecord> answers_;
   Pello::Ptr<PostcardTelemetry::HwCapability> hwCapability_;
   Host::HelperHandle helper_;
   std::map<PolicyKey, PolicyEntry> entries_;
   std::deque<PolicyKey> queue_; // whose steps are to be taken; may name entries that are gone
   std::optional<Request> inFlight_;
   std::optional<Request> expired_; // the latest request when its time was up
   std::chrono::milliseconds retryTime_;
   bool retryArmed_ = false; // the timer runs until the next attempt
   Pello::Publisher::Subscription answerSubscription_;
};

} // namespace Postcard::Agent
