// The life of policies in the agent: creation, reload, deletion; a rules client that answers.
#include "postcard/agent/PolicyAgentFixture.h"

namespace Postcard::Agent {
namespace {

TEST_F(PolicyAgentTest, everyPolicyIsCreatedAndCommittedInTheOrderOfTheFile) {
   start(twoPolicies);
   EXPECT_EQ(requests_,
             (Lines{"policyCreate web-ipv4", "policyCreate web-ipv6", "policyCreate dns-ipv4"}));
   EXPECT_EQ(states(),
             (Lines{"web ipv4 programmed", "web ipv6 programmed", "dns ipv4 programmed"}));
   EXPECT_TRUE(agent_->idle());
   EXPECT_EQ(timer_, std::nullopt);
   EXPECT_GT(changes_, 0);
   EXPECT_EQ(agent_->report()[2].generation, 3U);
   EXPECT_EQ(agent_->report()[2].history, Lines{""});
}

TEST_F(PolicyAgentTest, theNextRequestWaitsForTheAnswer) {
   silent_ = 1;
   start(twoPolicies);
   EXPECT_EQ(requests_, Lines{"policyCreate web-ipv4"});
   EXPECT_EQ(states(), (Lines{"web ipv4 waiting", "web ipv6 waiting", "dns ipv4 waiting"}));
   EXPECT_EQ(timer_, std::chrono::milliseconds{10'000});
   answer(1);
   drain();
   EXPECT_EQ(requests_.size(), 3U);
   EXPECT_TRUE(agent_->idle());
}

TEST_F(PolicyAgentTest, aFailureIsShownWithTheRulesClientsText) {
   answerText_ = "full: 2 entries needed, 1 free";
   start(onePolicy("Ethernet1", oneClass));
   EXPECT_EQ(only().state, PolicyState::failed);
   EXPECT_EQ(only().text, "full: 2 entries needed, 1 free");
   EXPECT_EQ(only().history, Lines{"full: 2 entries needed, 1 free"});
}

TEST_F(PolicyAgentTest, aRefusedPolicyIsUnsupportedAndTheOthersGoOn) {
   start(R"(policies:
  - { name: bad, interfaces: { ipv4: [e] }, classes: [{ name: c, actions: [drop], ipv4: {} }] }
  - { name: good, interfaces: { ipv4: [e] }, classes: [{ name: c, actions: [sample], ipv4: {} }] }
)");
   EXPECT_EQ(states(), (Lines{"bad ipv4 unsupported", "good ipv4 programmed"}));
   EXPECT_EQ(agent_->report()[0].text, "Unsupported action(s): 'drop', in configuration");
}

TEST_F(PolicyAgentTest, aPolicyWithoutRulesIsEmptyAndPostsNothing) {
   start(onePolicy("Ethernet1", ""));
   EXPECT_EQ(requests_, Lines{});
   EXPECT_EQ(only().state, PolicyState::empty);
}

TEST_F(PolicyAgentTest, aReloadOfTheSameFileDoesNothing) {
   start(twoPolicies);
   const ReloadResult result = reload(twoPolicies);
   EXPECT_TRUE(result.accepted);
   EXPECT_EQ(result.text(), "0 operations\n");
   EXPECT_EQ(requests_, Lines{});
}

TEST_F(PolicyAgentTest, aChangedClassMeansAnUpdate) {
   start(onePolicy("Ethernet1", oneClass));
   EXPECT_TRUE(reload(onePolicy("Ethernet1", twoClasses)).accepted);
   EXPECT_EQ(requests_, Lines{"policyUpdate web-ipv4"});
   EXPECT_EQ(only().history, (Lines{"", ""}));
   EXPECT_EQ(only().generation, 2U);
}

TEST_F(PolicyAgentTest, interfacesAloneAreAddedAndRemoved) {
   start(onePolicy("Ethernet1, Ethernet2", oneClass));
   EXPECT_TRUE(reload(onePolicy("Ethernet2, Ethernet3", oneClass)).accepted);
   EXPECT_EQ(requests_, (Lines{"policyIntfUpdate web-ipv4", "policyIntfUpdate web-ipv4"}));
   EXPECT_EQ(interfaces(), (Lines{"Ethernet2", "Ethernet3"}));
}

TEST_F(PolicyAgentTest, anInterfaceChangeOfAPolicyThatFailedBuildsItAnew) {
   answerText_ = "invalid: no";
   start(onePolicy("Ethernet1", oneClass));
   answerText_ = {};
   EXPECT_TRUE(reload(onePolicy("Ethernet2", oneClass)).accepted);
   EXPECT_EQ(requests_, Lines{"policyUpdate web-ipv4"});
   EXPECT_EQ(only().state, PolicyState::programmed);
}

TEST_F(PolicyAgentTest, aPolicyThatIsGoneIsDeletedAndForgottenAtTheNextReload) {
   start(twoPolicies);
   EXPECT_TRUE(reload(onePolicy("Ethernet1", oneClass)).accepted);
   // web loses IPv6, dns goes as a whole; the class of web has not changed.
   EXPECT_EQ(requests_, (Lines{"policyDelete dns-ipv4", "policyDelete web-ipv6"}));
   EXPECT_EQ(states(), (Lines{"web ipv4 programmed", "dns ipv4 removed", "web ipv6 removed"}));
   EXPECT_TRUE(reload(onePolicy("Ethernet1", oneClass)).accepted);
   EXPECT_EQ(states(), Lines{"web ipv4 programmed"});
}

TEST_F(PolicyAgentTest, aNewPolicyIsCreated) {
   start(onePolicy("Ethernet1", oneClass));
   EXPECT_TRUE(reload(twoPolicies).accepted);
   EXPECT_EQ(requests_, (Lines{"policyCreate web-ipv6", "policyCreate dns-ipv4"}));
}

TEST_F(PolicyAgentTest, aPolicyThatLosesAllItsClassesIsTakenBackFromHardware) {
   start(onePolicy("Ethernet1", oneClass));
   EXPECT_TRUE(reload(onePolicy("Ethernet1", "")).accepted);
   EXPECT_EQ(requests_, Lines{"policyDelete web-ipv4"});
   EXPECT_EQ(only().state, PolicyState::empty);
   EXPECT_TRUE(reload(onePolicy("Ethernet1", oneClass)).accepted);
   EXPECT_EQ(requests_, Lines{"policyCreate web-ipv4"});
}

TEST_F(PolicyAgentTest, aReloadWithAnythingRefusedChangesNothing) {
   start(twoPolicies);
   const auto before = states();
   const ReloadResult result = reload(onePolicy("Ethernet9", wrongClass));
   EXPECT_FALSE(result.accepted);
   EXPECT_EQ(result.text(), "web ipv4: Unsupported action(s): 'drop', in configuration\n"
                            "   1:93: class 'all': actions/drop\n");
   EXPECT_EQ(requests_, Lines{});
   EXPECT_EQ(states(), before);
   EXPECT_EQ(reload(twoPolicies).text(), "0 operations\n");
}

TEST_F(PolicyAgentTest, otherHardwareBuildsEverythingAnew) {
   start(onePolicy("Ethernet1", oneClass));
   EXPECT_TRUE(
         reload(onePolicy("Ethernet1", oneClass, "hardware: { tcp-flags: false }\n")).accepted);
   EXPECT_EQ(requests_, Lines{"policyUpdate web-ipv4"});
}

TEST_F(PolicyAgentTest, featureTogglesNeedAnotherProcess) {
   start(onePolicy("Ethernet1", oneClass));
   const ReloadResult result =
         reload(onePolicy("Ethernet1", oneClass,
                          "feature-toggles: { FeaturePostcardTelemetryTcpControl: false }\n"));
   EXPECT_FALSE(result.accepted);
   EXPECT_EQ(result.text(), "feature toggles are read once: restart the agent to change them\n");
   // Only what changes counts.
   EXPECT_EQ(reload(onePolicy("Ethernet1", oneClass,
                              "feature-toggles: { FeaturePostcardTelemetryTcpControl: true }\n"))
                   .text(),
             "0 operations\n");
}

TEST_F(PolicyAgentTest, withoutAnAnswerThePolicyWaitsAndTheQueueGoesOn) {
   silent_ = 1;
   start(twoPolicies);
   timeUp();
   // The answers to the others show that the rules client lives: the lost one is posted again.
   EXPECT_EQ(requests_, (Lines{"policyCreate web-ipv4", "policyCreate web-ipv6",
                               "policyCreate dns-ipv4", "policyUpdate web-ipv4"}));
   EXPECT_EQ(states(),
             (Lines{"web ipv4 programmed", "web ipv6 programmed", "dns ipv4 programmed"}));
   EXPECT_TRUE(agent_->idle());
}

TEST_F(PolicyAgentTest, anOverduePolicySaysSo) {
   silent_ = 1;
   start(onePolicy("Ethernet1", oneClass));
   timeUp();
   EXPECT_EQ(only().state, PolicyState::waiting);
   EXPECT_TRUE(only().overdue);
   EXPECT_EQ(only().text, "Operation pending for policy web, matchIpAccessGroup has not been "
                          "answered in time");
   EXPECT_TRUE(agent_->idle());
}

TEST_F(PolicyAgentTest, aLateAnswerToTheLatestRequestIsTaken) {
   silent_ = 1;
   start(onePolicy("Ethernet1", oneClass));
   agent_->timeUp();
   answer(1);
   drain();
   EXPECT_EQ(only().state, PolicyState::programmed);
   EXPECT_FALSE(only().overdue);
   EXPECT_EQ(only().history, Lines{""});
}

TEST_F(PolicyAgentTest, anAnswerToARequestThatIsGoneIsNotRecorded) {
   silent_ = 2;
   start(twoPolicies);
   timeUp(); // request 1; request 2 is posted
   answerText_ = "stale";
   answer(1);
   drain();
   EXPECT_EQ(requests_.size(), 2U);
   for (const PolicyReport& report : agent_->report()) {
      EXPECT_EQ(report.history, Lines{}) << report.name;
   }
   answerText_ = {};
   answer(2);
   drain();
   EXPECT_TRUE(agent_->idle());
   EXPECT_EQ(states(),
             (Lines{"web ipv4 programmed", "web ipv6 programmed", "dns ipv4 programmed"}));
}

TEST_F(PolicyAgentTest, anAnswerThatIsRepeatedIsTakenOnce) {
   start(onePolicy("Ethernet1", oneClass));
   agent_->answers()->kickResponseIs(0);
   agent_->answers()->kickResponseIs(1);
   drain();
   EXPECT_EQ(only().history, Lines{""});
   EXPECT_EQ(only().state, PolicyState::programmed);
}

TEST_F(PolicyAgentTest, aRemovalThatIsNeverConfirmedSaysSo) {
   start(twoPolicies);
   silent_ = 1;
   EXPECT_TRUE(reload(R"(policies:
  - name: web
    interfaces: { ipv4: [Ethernet1], ipv6: [Ethernet2] }
    classes: [{ name: all, actions: [sample], ipv4: {}, ipv6: {} }]
)")
                     .accepted);
   EXPECT_EQ(requests_, Lines{"policyDelete dns-ipv4"});
   EXPECT_EQ(agent_->report()[2].state, PolicyState::waiting);
   timeUp();
   EXPECT_EQ(agent_->report()[2].state, PolicyState::waiting);
   EXPECT_TRUE(agent_->report()[2].overdue);
   EXPECT_EQ(agent_->report()[2].text, "Operation pending for policy dns, matchIpAccessGroup has "
                                       "not been answered in time");
   EXPECT_TRUE(agent_->idle());
   EXPECT_FALSE(agent_->settled());
   EXPECT_TRUE(reload(twoPolicies).accepted);
   EXPECT_EQ(requests_, Lines{"policyCreate dns-ipv4"});
}

TEST_F(PolicyAgentTest, aRemovalThatFailsKeepsItsText) {
   start(onePolicy("Ethernet1", oneClass));
   answerText_ = "busy";
   EXPECT_TRUE(reload("policies: []\n").accepted);
   EXPECT_EQ(only().state, PolicyState::failed);
   EXPECT_EQ(only().text, "the rules client still holds it: busy");
}

TEST_F(PolicyAgentTest, whatWasNeverProgrammedCountsAsRemoved) {
   answerText_ = "full: no room";
   start(onePolicy("Ethernet1", oneClass));
   answerText_ = "invalid: web-ipv4 cannot be deleted: it is not programmed";
   EXPECT_TRUE(reload("policies: []\n").accepted);
   EXPECT_EQ(only().state, PolicyState::removed);
   EXPECT_EQ(only().text, "");
}

TEST_F(PolicyAgentTest, deleteAllTakesEverythingBack) {
   start(twoPolicies);
   requests_.clear();
   silent_ = 1;
   agent_->deleteAll();
   drain();
   EXPECT_FALSE(agent_->idle());
   answer(4);
   drain();
   EXPECT_TRUE(agent_->idle());
   EXPECT_EQ(requests_.size(), 3U);
   for (const PolicyReport& report : agent_->report()) {
      EXPECT_EQ(report.state, PolicyState::removed);
   }
}

TEST_F(PolicyAgentTest, historyKeepsTheLatestAnswersOnly) {
   PolicyAgent::Options options;
   options.historyLength = 3;
   start(onePolicy("Ethernet1", oneClass), options);
   for (int i = 0; i < 5; ++i) {
      answerText_ = "answer " + std::to_string(i);
      reload(onePolicy("Ethernet1", i % 2 == 0 ? twoClasses : oneClass));
   }
   EXPECT_EQ(only().history, (Lines{"answer 2", "answer 3", "answer 4"}));
}

TEST_F(PolicyAgentTest, reloadsWhileRequestsAreInFlightEndInTheLatestFile) {
   silent_ = 1;
   start(onePolicy("Ethernet1", oneClass));
   EXPECT_TRUE(agent_->reload(parse(onePolicy("Ethernet1", twoClasses))).accepted);
   EXPECT_TRUE(agent_->reload(parse(twoPolicies)).accepted);
   EXPECT_TRUE(agent_->reload(parse(onePolicy("Ethernet7", twoClasses))).accepted);
   answer(1);
   drain();
   EXPECT_TRUE(agent_->idle());
   std::map<std::string, std::size_t> rules;
   agent_->forEachAclConfig([&](const auto& config) {
      rules[config.aclConfigKey().str()] = config.ruleByIndexs();
      EXPECT_TRUE(config.policyIntf(Orlix::IntfId{"Ethernet7"}));
   });
   EXPECT_EQ(rules, (std::map<std::string, std::size_t>{{"web-ipv4", 4}}));
}

} // namespace
} // namespace Postcard::Agent
