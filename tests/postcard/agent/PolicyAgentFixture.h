// The agent's core with the real module, a rules client that does what the test says, and a clock
// that the test turns: `PolicyAgentTest`.
#pragma once

#include "postcard/agent/PolicyAgent.h"
#include "postcard/policy/file/PolicyFile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <map>

namespace Postcard::Agent {

inline constexpr const char* module = POSTCARD_MODULE_DIR "/OruPostcardTelemetryPolicyAclHelper.so";

// Two policies; one of them in both families.
inline constexpr const char* twoPolicies = R"(policies:
  - name: web
    interfaces: { ipv4: [Ethernet1], ipv6: [Ethernet2] }
    classes: [{ name: all, actions: [sample], ipv4: {}, ipv6: {} }]
  - name: dns
    interfaces: { ipv4: [Ethernet1] }
    classes: [{ name: all, actions: [sample-all], ipv4: { protocols: [{ protocol: udp }] } }]
)";

// One policy with the given interfaces, classes and file head.
inline std::string onePolicy(const std::string& interfaces, const std::string& classes,
                             const std::string& head = {}) {
   return head + "policies: [{ name: web, interfaces: { ipv4: [" + interfaces + "] }, classes: [" +
          classes + "] }]\n";
}

inline const std::string oneClass = "{ name: all, actions: [sample], ipv4: {} }";
inline const std::string twoClasses = oneClass + ", { name: more, actions: [sample], ipv4: {} }";
inline const std::string wrongClass = "{ name: all, actions: [drop], ipv4: {} }";

inline Policy::PolicyFile parse(const std::string& text) {
   const Policy::File::LoadResult loaded = Policy::File::parsePolicyText(text, "test.yaml");
   EXPECT_TRUE(loaded.policyFile) << formatFindings(loaded);
   return loaded.policyFile.value_or(Policy::PolicyFile{});
}

class PolicyAgentTest : public testing::Test {
 protected:
   PolicyAgentTest() : host_{module} {}

   // Makes the agent. Requests are noted; those of `silent_` stay unanswered.
   void make(const std::string& text, PolicyAgent::Options options = {}) {
      agent_ = std::make_unique<PolicyAgent>(
            host_, parse(text), options,
            PolicyAgent::Hooks{[this](std::function<void()> work) { laters_.push_back(work); },
                               [this](auto time) { timer_ = time; }, [this] { ++changes_; }});
      subscription_ = agent_->requests()->publisher()->subscribe([this](const auto& change) {
         if (change.attribute ==
             OruPostcardTelemetry::PostcardTelemetryRulesClientSmConfig::kickRequestId) {
            noteRequest();
         }
      });
   }
   void start(const std::string& text, PolicyAgent::Options options = {}) {
      make(text, options);
      agent_->start();
      drain();
   }

   void noteRequest() {
      const auto& request = *agent_->requests();
      requests_.push_back(stringValue(request.event()) + " " +
                          request.aclConfig()->aclConfigKey().str());
      if (silent_ > 0) {
         --silent_;
      } else {
         answer(request.kickRequest());
      }
   }
   void answer(U32 request) {
      agent_->answers()->statusIs(answerText_);
      agent_->answers()->statusTypeIs(answerText_.empty() ? OruPostcardTelemetry::statusSuccess
                                                          : OruPostcardTelemetry::statusFailure);
      agent_->answers()->kickResponseIs(request);
   }
   void drain() {
      while (!laters_.empty()) {
         const auto work = laters_.front();
         laters_.pop_front();
         work();
      }
   }
   // The time that the agent asked for is up.
   void timeUp() {
      agent_->timeUp();
      drain();
   }
   ReloadResult reload(const std::string& text) {
      requests_.clear();
      const ReloadResult result = agent_->reload(parse(text));
      drain();
      return result;
   }

   // "name family state" of every report.
   std::vector<std::string> states() const {
      std::vector<std::string> states;
      for (const PolicyReport& report : agent_->report()) {
         states.push_back(report.name + " " + std::string{familyName(report.family)} + " " +
                          std::string{policyStateName(report.state)});
      }
      return states;
   }
   PolicyReport only() const {
      const auto reports = agent_->report();
      EXPECT_EQ(reports.size(), 1U);
      return reports.front();
   }

   using Lines = std::vector<std::string>;

   // Those of all ACL configurations, sorted.
   Lines interfaces() const {
      Lines interfaces;
      agent_->forEachAclConfig([&](const auto& config) {
         for (const auto& intf : config.policyIntf()) {
            interfaces.push_back(intf.stringValue().str());
         }
      });
      std::ranges::sort(interfaces);
      return interfaces;
   }

   Host::PluginHost host_;
   std::deque<std::function<void()>> laters_;
   std::optional<std::chrono::milliseconds> timer_;
   int changes_ = 0;
   int silent_ = 0;
   Pello::String answerText_; // empty: success
   Lines requests_;
   std::unique_ptr<PolicyAgent> agent_;
   Pello::Publisher::Subscription subscription_;
};

} // namespace Postcard::Agent
