// Random walks of the agent's core with the software TCAM: reloads, and answers that are right,
// late, lost, repeated, out of place or refusals, in any order. After every step, what the agent
// says must be true of what the TCAM holds; and when things go well again, the TCAM must hold what
// an agent that has just been started with the latest file would have put there.
#include "postcard/agent/PolicyAgent.h"
#include "postcard/policy/file/PolicyFile.h"
#include "postcard/rules-client/software/SoftwareTcam.h"
#include "support/FaultyLine.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <deque>
#include <map>
#include <memory>
#include <stdexcept>

namespace Postcard::Agent {
namespace {

// ---- Files ----

// A class that matches `filter` in the families. Names tell contents apart: equal names, equal
// rules.
std::string classText(const std::string& name, const std::string& action, const std::string& filter,
                      bool ipv6) {
   return "{ name: " + name + ", actions: [" + action + "], ipv4: " + filter +
          (ipv6 ? ", ipv6: " + filter : "") + " }";
}

std::string classesText(unsigned variant, bool ipv6) {
   const std::string udp = "{ protocols: [{ protocol: udp }] }";
   const std::string nothing = "{ protocols: [{ protocol: tcp, ports: [{}] }] }";
   switch (variant) {
   case 0:
      return "";
   case 1:
      return classText("nothing", "sample", nothing, ipv6);
   case 2:
      return classText("udp", "sample", udp, ipv6);
   default:
      return classText("dns", "sample-all", udp, ipv6) + ", " +
             classText("all", "sample", "{}", ipv6);
   }
}

// The policy in one of 13 variants, of which the first is none at all.
std::string policyText(const std::string& name, unsigned variant) {
   constexpr const char* interfaces[] = {"ipv4: [Ethernet1]", "ipv4: [Ethernet1, Ethernet2]",
                                         "ipv4: [Ethernet2], ipv6: [Ethernet3]"};
   if (variant == 0) {
      return {};
   }
   const unsigned attached = (variant - 1) % 3;
   return "  - { name: " + name + ", interfaces: { " + interfaces[attached] + " }, classes: [" +
          classesText((variant - 1) / 3, attached == 2) + "] }\n";
}

constexpr unsigned fileChoices = 13 * 13 * 2;

const Policy::PolicyFile& fileOf(unsigned choice) {
   static std::map<unsigned, Policy::PolicyFile> files;
   if (const auto known = files.find(choice); known != files.end()) {
      return known->second;
   }
   const std::string policies = policyText("P", choice % 13) + policyText("Q", choice / 13 % 13);
   const std::string text = (choice / 169 == 0 ? "" : "hardware: { tcp-flags: false }\n") +
                            (policies.empty() ? "policies: []\n" : "policies:\n" + policies);
   const Policy::File::LoadResult loaded = Policy::File::parsePolicyText(text, "walk.yaml");
   if (!loaded.policyFile) {
      throw std::logic_error{formatFindings(loaded) + text};
   }
   return files.emplace(choice, *loaded.policyFile).first->second;
}

// ---- An agent and its TCAM ----

using Rules = std::vector<std::string>; // "index name sampled", and the interfaces

Rules rulesOf(const Classifier::AclTable& table) {
   Rules rules;
   for (const auto& entry : table.entries()) {
      rules.push_back(std::to_string(entry.index) + " " + entry.rule.str() +
                      (entry.sampled ? " sampled" : ""));
   }
   for (const Orlix::IntfId intf : table.interfaces()) {
      rules.push_back(intf.stringValue().str());
   }
   return rules;
}

class Walker {
 public:
   explicit Walker(const Policy::PolicyFile& file, std::size_t capacity = 1000) {
      static const Host::PluginHost host{POSTCARD_MODULE_DIR
                                         "/OruPostcardTelemetryPolicyAclHelper.so"};
      const auto later = [this](std::function<void()> work) { laters_.push_back(std::move(work)); };
      agent_ = std::make_unique<PolicyAgent>(
            host, file, PolicyAgent::Options{},
            PolicyAgent::Hooks{later, [this](auto time) { timed_ = time.has_value(); }, [] {}});
      tcam_ = std::make_shared<RulesClient::SoftwareTcam>(capacity);
      line_ = std::make_unique<TestSupport::FaultyLine>(agent_->requests(), agent_->answers(),
                                                        tcam_, later);
   }

   PolicyAgent& agent() { return *agent_; }
   TestSupport::FaultyLine& line() { return *line_; }

   void runLaters(std::size_t most) {
      for (; most > 0 && !laters_.empty(); --most) {
         const auto work = std::move(laters_.front());
         laters_.pop_front();
         work();
      }
   }
   void timeUp() {
      if (std::exchange(timed_, false)) {
         agent_->timeUp();
      }
   }
   // Answers come, and time passes, until nothing moves any more.
   void settle() {
      for (int i = 0; i < 1000 && (timed_ || !laters_.empty() || !agent_->idle()); ++i) {
         runLaters(100);
         line_->releaseAnswers();
         runLaters(100);
         timeUp();
      }
      RC_ASSERT(agent_->idle());
      RC_ASSERT(!timed_);
   }

   std::map<std::string, Rules> held() const {
      std::map<std::string, Rules> acls;
      for (const auto& [key, table] : tcam_->acls()) {
         acls[key.str()] = rulesOf(table);
      }
      return acls;
   }

   // What the agent says is true of the TCAM.
   void checkReports() const {
      std::map<std::string, Rules> built;
      agent_->forEachAclConfig([&](const auto& config) {
         if (config.ruleByNames() != 0) {
            built[config.aclConfigKey().str()] = rulesOf(Classifier::AclTable{config});
         }
      });
      const auto held = this->held();
      for (const PolicyReport& report : agent_->report()) {
         const std::string key = report.name + "-" + std::string{familyName(report.family)};
         RC_LOG() << key << " " << policyStateName(report.state) << " " << report.text << "\n";
         if (report.state == PolicyState::programmed) {
            RC_ASSERT(held.contains(key));
            RC_ASSERT(held.at(key) == built.at(key));
         } else if (report.state == PolicyState::empty || report.state == PolicyState::removed) {
            RC_ASSERT(!held.contains(key));
         }
      }
   }

 private:
   std::deque<std::function<void()>> laters_;
   bool timed_ = false;
   std::unique_ptr<PolicyAgent> agent_;
   std::shared_ptr<RulesClient::SoftwareTcam> tcam_;
   std::unique_ptr<TestSupport::FaultyLine> line_;
};

// ---- The walk ----

using Move = std::pair<unsigned, unsigned>; // what, and with which argument

void take(const Move& move, Walker& walker) {
   constexpr TestSupport::InjectedFailure::Kind kinds[] = {
         TestSupport::InjectedFailure::refuse, TestSupport::InjectedFailure::late,
         TestSupport::InjectedFailure::never, TestSupport::InjectedFailure::twice,
         TestSupport::InjectedFailure::gone};
   switch (move.first) {
   case 0:
   case 1:
      RC_ASSERT(walker.agent().reload(fileOf(move.second)).accepted);
      return;
   case 2:
      walker.line().inject({kinds[move.second % 5], "busy"}, 1 + move.second / 5 % 2);
      return;
   case 3:
      walker.timeUp();
      return;
   case 4:
      walker.line().releaseAnswers();
      return;
   case 5:
      walker.runLaters(1 + move.second % 3);
      return;
   default:
      walker.runLaters(100);
      return;
   }
}

// Moves, and where a walk of them begins: two policies.
rc::Gen<std::vector<Move>> someMoves() {
   return rc::gen::scale(2.0, rc::gen::container<std::vector<Move>>(rc::gen::pair(
                                    rc::gen::inRange(0U, 7U), rc::gen::inRange(0U, fileChoices))));
}
constexpr unsigned firstChoice = fileChoices / 2 - 1;

// What a new agent would have put into an empty TCAM.
std::map<std::string, Rules> freshlyHeld(const Policy::PolicyFile& file) {
   Walker fresh{file};
   fresh.agent().start();
   fresh.settle();
   return fresh.held();
}

RC_GTEST_PROP(PolicyAgentWalk, endsWhereTheLatestFileWantsToBe, ()) {
   const auto moves = *someMoves();
   unsigned latest = firstChoice;
   Walker walker{fileOf(latest)};
   walker.agent().start();
   for (const Move& move : moves) {
      take(move, walker);
      walker.checkReports();
      latest = move.first <= 1 ? move.second : latest;
   }
   walker.settle();
   walker.checkReports();
   RC_ASSERT(walker.held() == freshlyHeld(fileOf(latest)));
   for (const PolicyReport& report : walker.agent().report()) {
      RC_ASSERT(report.state == PolicyState::programmed || report.state == PolicyState::empty ||
                report.state == PolicyState::removed);
   }
}

// Which of the policies fit depends on the order of what happened; that what fits is programmed and
// the rest is told, does not.
RC_GTEST_PROP(PolicyAgentWalk, saysWhatIsTrueOfATcamThatIsTooSmall, ()) {
   const auto moves = *someMoves();
   Walker walker{fileOf(firstChoice), *rc::gen::inRange<std::size_t>(0, 6)};
   walker.agent().start();
   for (const Move& move : moves) {
      take(move, walker);
      walker.checkReports();
   }
   for (int i = 0; i < 400; ++i) { // what was lost is asked for again
      walker.line().releaseAnswers();
      walker.runLaters(100);
      walker.timeUp();
   }
   walker.runLaters(100);
   walker.checkReports();
   for (const PolicyReport& report : walker.agent().report()) {
      RC_ASSERT(!report.overdue);
      RC_ASSERT(report.state != PolicyState::failed || report.text.starts_with("full: "));
   }
}

} // namespace
} // namespace Postcard::Agent
