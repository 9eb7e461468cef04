// `PolicyAgent`: the policy-map machinery around a helper. It makes the policies of a file, posts
// their requests to the rules client one at a time, takes the answers, and changes what a new file
// changes. Relies on the plug-in host and on `PolicyPlan`, which says what has to be done; time and
// the event loop are the caller's (`Hooks`), so that tests turn the clock.
//
// The request record has one slot. Therefore policies wait in a queue, and the next step begins
// when the rules client has answered the request of the one before, or its time is up. An answer
// that comes after its time is still taken while its request is the latest; after that it only
// tells that the rules client lives. What is overdue is committed anew after every sign of life,
// and without one, like what was refused for now, when the queue is empty and some time has passed.
#pragma once

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/RulesClientSm.h"
#include "postcard/agent/PolicyPlan.h"
#include "postcard/agent/PolicyReport.h"
#include "postcard/host/PluginHost.h"

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
      // Something that `report` tells has changed.
      std::function<void()> changed;
   };

   struct Options {
      std::chrono::milliseconds answerTime{10'000}; // how long a request may take
      std::size_t historyLength = 100;              // answers kept per policy and family
      // How long after a lost answer or a refusal the request is made again; doubled after every
      // attempt in vain.
      std::chrono::milliseconds retryTime{1'000};
      std::chrono::milliseconds longestRetryTime{60'000};
   };

   // Nothing runs before `start`. `host` must outlive the agent.
   PolicyAgent(const Host::PluginHost& host, const Policy::PolicyFile& file, Options options,
               Hooks hooks);
   PolicyAgent(const PolicyAgent&) = delete;
   PolicyAgent& operator=(const PolicyAgent&) = delete;
   ~PolicyAgent();

   // The records that the rules client reads and writes.
   const Pello::Ptr<OruPostcardTelemetry::PostcardTelemetryRulesClientSmConfig>& requests() const {
      return requests_;
   }
   const Pello::Ptr<OruPostcardTelemetry::PostcardTelemetryRulesClientSmStatus>& answers() const {
      return answers_;
   }

   // Creates and commits every policy of the file.
   void start();

   // Makes the policies be those of `file`, all or nothing: first all of them
   // are made on a scratch helper, and only when nothing is refused the live one changes. What the
   // file before asked for and has not begun is dropped.
   ReloadResult reload(const Policy::PolicyFile& file);

   // Deletes every policy; `settled` tells when that has come to its end.
   void deleteAll();

   // Whether nothing is left to do now and no answer is awaited.
   bool idle() const { return queue_.empty() && !inFlight_; }
   // Whether, besides, nothing is left to be tried again.
   bool settled() const { return idle() && !retryArmed_; }

   // The time of the request in flight, or until the next attempt, is up.
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
      U32 request;
      OruPostcardTelemetry::PostcardTelemetryRulesClientSmStatusType type;
      Pello::String text;
   };

   // Whether a request is made for the first time, or because the one before was lost or refused.
   enum class Attempt : std::uint8_t { first, again };

   // A request that awaits its answer.
   struct Request {
      PolicyKey key;
      U32 number;
      bool removal; // of a configuration that the helper has no more
   };

   void adopt(const std::vector<std::shared_ptr<const PolicyVersion>>& versions);
   void enqueueAll();
   std::size_t stepsLeft() const;
   void pump();
   void perform(const Step& step, PolicyEntry& entry, const PolicyKey& key);
   void build(PolicyEntry& entry, const PolicyKey& key);
   void commit(PolicyEntry& entry, const PolicyKey& key, Attempt attempt);
   void remove(PolicyEntry& entry, const PolicyKey& key);
   void changeIntf(const Step& step, PolicyEntry& entry, const PolicyKey& key);
   void await(const PolicyKey& key, PolicyEntry& entry, U32 before, Attempt attempt);
   void answered(const Answer& answer);
   void takeAnswer(const Request& request, const Answer& answer);
   void takeRemovalAnswer(PolicyEntry& entry, const Answer& answer);
   void tellOverdue(const Request& request);
   void retry(bool onlyOverdue);
   void armRetry();
   void trimHistory(PolicyEntry& entry) const;
   Pello::Ptr<OruPostcardTelemetry::PostcardTelemetryAclConfig>
   configOf(const PolicyKey& key) const;

   const Host::PluginHost& host_;
   Options options_;
   Hooks hooks_;
   Policy::ToggleMap featureToggles_;
   Pello::Ptr<OruPostcardTelemetry::PostcardTelemetryRulesClientSmConfig> requests_;
   Pello::Ptr<OruPostcardTelemetry::PostcardTelemetryRulesClientSmStatus> answers_;
   Pello::Ptr<PostcardTelemetry::HwCapability> hwCapability_;
   Host::HelperHandle helper_;
   std::map<PolicyKey, PolicyEntry> entries_;
   std::deque<PolicyKey> queue_; // whose steps are to be taken; may name what is gone
   std::optional<Request> inFlight_;
   std::optional<Request> expired_; // the latest request when its time was up
   std::chrono::milliseconds retryTime_;
   bool retryArmed_ = false; // the timer runs until the next attempt
   Pello::Publisher::Subscription answerSubscription_;
};

} // namespace Postcard::Agent
