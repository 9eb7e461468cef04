// `PolicyAgent`: the policy-map machinery around a helper. It makes the policies of a file, posts
// their requests to the rules client one at a time, takes the answers, and changes what a new file
// changes. Relies on the plug-in host and the policy builder; time and the event loop are the
// caller's (`Hooks`), so that tests turn the clock.
//
// The request record has one slot. Therefore operations wait in a queue, and the next one begins
// when the rules client has answered the request of the one before, or its time is up. An answer
// that comes after its time is still taken while its request is the latest; after that it only
// tells that the rules client lives, and every policy that still waits is committed anew.
#pragma once

#include "agent/PluginHost.h"
#include "agent/PolicyFile.h"

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Agent {

// Where a policy stands in one family.
enum class PolicyState : std::uint8_t {
   invalid,     // the plug-in refused it for another reason than the next
   unsupported, // it asks for what rules cannot express
   empty,       // it has no rules, so there is nothing to program
   waiting,     // the rules client has not answered yet
   programmed,  // the rules client programmed the latest request
   failed,      // it could not; the text says why
   removed,     // gone since the latest change of the file
};

// The word that `postcard status` shows.
std::string_view policyStateName(PolicyState state);

// What can be told about a policy in one family.
struct PolicyReport {
   std::string name;
   Family family = Family::ipv4;
   PolicyState state = PolicyState::waiting;
   std::string text;     // of the plug-in or the rules client; empty when there is nothing to say
   U32 generation = 0;   // the request counter of its latest request; 0 before the first
   double since = 0;     // seconds since 1970-01-01 00:00 UTC at which it took this state
   bool overdue = false; // waiting, and the time for the answer is up
   std::vector<std::string> history; // the rules client's answers, oldest first
};

// How a reload ended.
struct ReloadResult {
   bool accepted = false;
   std::string text; // why not, one line per finding; or what changed
};

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
   };

   // Nothing runs before `start`. `host` must outlive the agent.
   PolicyAgent(const PluginHost& host, PolicyFile file, Options options, Hooks hooks);
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

   // Makes the policies be those of `file`, all or nothing: first everything that is new or changed
   // is made on a scratch helper, and only when nothing is refused the live one changes.
   ReloadResult reload(const PolicyFile& file);

   // Deletes every policy. `idle` tells when the rules client has answered all of it.
   void deleteAll();

   // Whether no operation waits and no answer is awaited.
   bool idle() const { return queue_.empty() && !inFlight_; }

   // The time of the request in flight is up.
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
   using Key = std::pair<std::string, Family>;

   enum class Verb : std::uint8_t { build, commit, remove, addIntf, removeIntf };

   struct Operation {
      Verb verb;
      Key key;
      std::string intf; // of addIntf and removeIntf
   };

   // One policy in one family.
   struct Entry {
      Pello::Ptr<const PolicyMap::PolicyMapSmCommonData> data;
      std::size_t order = 0; // place in the file
      PolicyState state = PolicyState::waiting;
      std::string text;
      U32 generation = 0;
      double since = 0;
      bool overdue = false;
      bool exists = false; // the helper has an ACL configuration for it
   };

   // The request that awaits its answer.
   struct InFlight {
      Key key;
      U32 request;
      bool removal;
   };

   void push(Verb verb, const Key& key, std::string intf = {});
   void pump();
   void perform(const Operation& operation);
   void performBuild(Entry& entry, const Key& key);
   void performCommit(Entry& entry, const Key& key);
   void performRemoval(Entry& entry, const Key& key);
   void performIntf(Entry& entry, const Operation& operation);
   void await(const Key& key, Entry& entry, U32 before, bool removal);
   void answered();
   void takeAnswer(const InFlight& request);
   void recommitOverdue();
   void trimHistory(const Key& key);
   void settle(Entry& entry, PolicyState state, std::string text);
   Pello::Ptr<OruPostcardTelemetry::PostcardTelemetryAclConfig> configOf(const Key& key) const;
   void adopt(const PolicyFile& file);
   void change(const PolicyFile& file);
   void plan(const Policy& policy, const Policy* old, Family family, bool hardwareChanged);
   std::string tryOnScratch(const PolicyFile& file) const;

   const PluginHost& host_;
   Options options_;
   Hooks hooks_;
   PolicyFile file_;
   Pello::Ptr<OruPostcardTelemetry::PostcardTelemetryRulesClientSmConfig> requests_;
   Pello::Ptr<OruPostcardTelemetry::PostcardTelemetryRulesClientSmStatus> answers_;
   Pello::Ptr<PostcardTelemetry::HwCapability> hwCapability_;
   HelperHandle helper_;
   std::map<Key, Entry> entries_;
   std::deque<Operation> queue_;
   std::optional<InFlight> inFlight_;
   std::optional<InFlight> expired_; // the latest request when its time was up
   bool pumping_ = false;
   Pello::Publisher::Subscription answerSubscription_;
};

} // namespace Agent
