// What the agent does when reloads overtake a slow rules client, and when answers are late, lost or
// refusals.
#include "postcard/agent/PolicyAgentFixture.h"

namespace Postcard::Agent {
namespace {

// A class whose only port entry matches nothing: it has a filter, and makes no rule.
const std::string ruleless = "{ name: all, actions: [sample], ipv4: { protocols: [{ protocol: tcp, "
                             "ports: [{}] }] } }";

std::string policyNamed(const std::string& name) {
   return "  - { name: " + name + ", interfaces: { ipv4: [Ethernet1] }, classes: [" + oneClass +
          "] }\n";
}

const std::string noPolicies = "policies: []\n";
const std::string onlyP = "policies:\n" + policyNamed("P");
const std::string pAndQ = onlyP + policyNamed("Q");

// ---- Reloads that overtake the rules client ----

TEST_F(PolicyAgentTest, reloadsOvertakeDeletionsInFlight) {
   start(pAndQ);
   silent_ = 100;
   EXPECT_TRUE(reload(noPolicies).accepted); // request 3 deletes P
   EXPECT_TRUE(reload(onlyP).accepted);      // P is to be built again
   answer(3);
   drain();
   EXPECT_TRUE(reload(noPolicies).accepted); // and now is not, before that has begun
   answer(4);
   drain();
   EXPECT_TRUE(agent_->idle());
   EXPECT_EQ(states(), (Lines{"P ipv4 removed", "Q ipv4 removed"}));
}

TEST_F(PolicyAgentTest, aPolicyThatComesBackWhileItsDeletionIsInFlightIsCreated) {
   start(onlyP);
   silent_ = 1;
   EXPECT_TRUE(reload(noPolicies).accepted);
   EXPECT_TRUE(agent_->reload(parse(onlyP)).accepted);
   EXPECT_EQ(states(), Lines{"P ipv4 waiting"});
   answer(2);
   drain();
   EXPECT_EQ(requests_, (Lines{"policyDelete P-ipv4", "policyCreate P-ipv4"}));
   EXPECT_EQ(states(), Lines{"P ipv4 programmed"});
}

TEST_F(PolicyAgentTest, aNewPlanDropsWhatHasNotBegun) {
   silent_ = 1;
   start(pAndQ); // request 1 creates P; Q's creation waits
   EXPECT_TRUE(reload(onlyP).accepted);
   answer(1);
   drain();
   EXPECT_EQ(requests_, Lines{});
   EXPECT_EQ(states(), (Lines{"P ipv4 programmed", "Q ipv4 removed"}));
}

TEST_F(PolicyAgentTest, anInterfaceChangePlannedBehindARefusedUpdateBuildsAnew) {
   start(onePolicy("Ethernet1", oneClass));
   silent_ = 1;
   EXPECT_TRUE(reload(onePolicy("Ethernet1", twoClasses)).accepted);
   EXPECT_TRUE(reload(onePolicy("Ethernet1, Ethernet2", twoClasses)).accepted);
   answerText_ = "busy";
   answer(2);
   answerText_ = {};
   drain();
   // An interface request would be answered well and say nothing about the rules.
   EXPECT_EQ(requests_, Lines{"policyUpdate web-ipv4"});
   EXPECT_EQ(only().state, PolicyState::programmed);
}

// ---- Policies that lose their rules ----

TEST_F(PolicyAgentTest, aPolicyThatLosesAllItsRulesIsTakenBackFromHardware) {
   start(onePolicy("Ethernet1", oneClass));
   EXPECT_TRUE(reload(onePolicy("Ethernet1", ruleless)).accepted);
   EXPECT_EQ(requests_, Lines{"policyDelete web-ipv4"});
   EXPECT_EQ(only().state, PolicyState::empty);
   EXPECT_TRUE(reload(onePolicy("Ethernet1", oneClass)).accepted);
   EXPECT_EQ(requests_, Lines{"policyCreate web-ipv4"});
   EXPECT_EQ(only().state, PolicyState::programmed);
}

TEST_F(PolicyAgentTest, aLateAnswerToTheRemovalOfLostRulesIsTaken) {
   start(onePolicy("Ethernet1", oneClass));
   silent_ = 1;
   EXPECT_TRUE(reload(onePolicy("Ethernet1", "")).accepted);
   timeUp();
   EXPECT_EQ(only().state, PolicyState::waiting);
   EXPECT_TRUE(only().overdue);
   answer(2);
   drain();
   EXPECT_EQ(only().state, PolicyState::empty);
   EXPECT_TRUE(reload(onePolicy("Ethernet1", oneClass)).accepted);
   EXPECT_EQ(requests_, Lines{"policyCreate web-ipv4"});
   EXPECT_EQ(only().state, PolicyState::programmed);
}

TEST_F(PolicyAgentTest, lostRulesThatTheRulesClientDoesNotGiveUpAreAFailure) {
   start(onePolicy("Ethernet1", oneClass));
   answerText_ = "busy";
   EXPECT_TRUE(reload(onePolicy("Ethernet1", ruleless)).accepted);
   EXPECT_EQ(only().state, PolicyState::failed);
   EXPECT_EQ(only().text, "the rules client still holds it: busy");
   answerText_ = {};
   EXPECT_TRUE(reload(onePolicy("Ethernet1", ruleless)).accepted);
   EXPECT_EQ(requests_, Lines{"policyDelete web-ipv4"});
   EXPECT_EQ(only().state, PolicyState::empty);
   EXPECT_TRUE(reload(onePolicy("Ethernet1", oneClass)).accepted);
   EXPECT_EQ(only().state, PolicyState::programmed);
}

// ---- Answers ----

TEST_F(PolicyAgentTest, anAnswerIsWhatWasWrittenWhenItsCounterWasPublished) {
   start(onePolicy("Ethernet1", oneClass));
   silent_ = 1;
   EXPECT_TRUE(reload(onePolicy("Ethernet1", twoClasses)).accepted);
   answer(2);
   answerText_ = "stale";
   answer(1); // before the event loop comes to the first of the two
   drain();
   EXPECT_EQ(only().state, PolicyState::programmed);
   EXPECT_EQ(only().history, (Lines{"", ""}));
   EXPECT_TRUE(agent_->idle());
}

TEST_F(PolicyAgentTest, aStaleAnswerBeforeTheRightOneIsNotTaken) {
   start(onePolicy("Ethernet1", oneClass));
   silent_ = 1;
   EXPECT_TRUE(reload(onePolicy("Ethernet1", twoClasses)).accepted);
   answerText_ = "stale";
   answer(0);
   answerText_ = {};
   answer(2);
   drain();
   EXPECT_EQ(only().state, PolicyState::programmed);
   EXPECT_EQ(only().history, (Lines{"", ""}));
}

// ---- Recovery ----

TEST_F(PolicyAgentTest, aLostAnswerIsAskedForAgainWithoutAReload) {
   silent_ = 2;
   start(onePolicy("Ethernet1", oneClass));
   const double since = only().since;
   timeUp();
   EXPECT_EQ(timer_, std::chrono::milliseconds{1000});
   timeUp(); // the time until the next attempt
   EXPECT_EQ(requests_, (Lines{"policyCreate web-ipv4", "policyUpdate web-ipv4"}));
   EXPECT_TRUE(only().overdue);
   EXPECT_EQ(only().since, since); // it has waited since the first request
   timeUp();
   EXPECT_EQ(timer_, std::chrono::milliseconds{2000}); // a dead rules client is asked ever less
   timeUp();
   EXPECT_EQ(only().state, PolicyState::programmed);
   EXPECT_FALSE(only().overdue);
   EXPECT_EQ(timer_, std::nullopt);
}

TEST_F(PolicyAgentTest, attemptsAreNoFurtherApartThanAMinute) {
   silent_ = 100;
   start(onePolicy("Ethernet1", oneClass));
   for (int i = 0; i < 40; ++i) {
      timeUp();
      EXPECT_LE(timer_.value_or(std::chrono::hours{1}), std::chrono::seconds{60});
   }
   EXPECT_EQ(requests_.size(), 21U);
}

TEST_F(PolicyAgentTest, whatFailedForNowIsTriedAgain) {
   answerText_ = "full: web-ipv4 needs 2 entries, 1 of 1 are free";
   start(onePolicy("Ethernet1", oneClass));
   EXPECT_EQ(only().state, PolicyState::failed);
   ASSERT_TRUE(timer_);
   answerText_ = {};
   timeUp();
   EXPECT_EQ(only().state, PolicyState::programmed);
   EXPECT_EQ(timer_, std::nullopt);
}

TEST_F(PolicyAgentTest, aFailureSaysSinceWhenWhileItIsTriedAgain) {
   answerText_ = "busy";
   start(onePolicy("Ethernet1", oneClass));
   const double since = only().since;
   silent_ = 1;
   timeUp(); // the next attempt
   EXPECT_EQ(requests_.size(), 2U);
   EXPECT_EQ(only().state, PolicyState::failed);
   EXPECT_EQ(only().text, "busy");
   answer(2);
   drain();
   EXPECT_EQ(only().state, PolicyState::failed);
   EXPECT_EQ(only().since, since);
   silent_ = 1;
   EXPECT_TRUE(reload(onePolicy("Ethernet1", twoClasses)).accepted); // something else
   EXPECT_EQ(only().state, PolicyState::waiting);
   EXPECT_EQ(only().text, "");
}

TEST_F(PolicyAgentTest, aFailureWhoseNextAttemptIsLostWaits) {
   answerText_ = "busy";
   start(onePolicy("Ethernet1", oneClass));
   const double since = only().since;
   silent_ = 1;
   timeUp(); // the next attempt
   timeUp(); // its time is up
   EXPECT_EQ(only().state, PolicyState::waiting);
   EXPECT_TRUE(only().overdue);
   EXPECT_EQ(only().since, since) << "it has not been programmed since then";
   answerText_ = {};
   timeUp();
   EXPECT_EQ(only().state, PolicyState::programmed);
}

TEST_F(PolicyAgentTest, aRemovalThatIsLostAndThenRefusedIsAFailure) {
   start(onePolicy("Ethernet1", oneClass));
   silent_ = 1;
   EXPECT_TRUE(reload(noPolicies).accepted);
   timeUp();
   EXPECT_TRUE(only().overdue);
   answerText_ = "busy";
   timeUp(); // the next attempt
   EXPECT_EQ(requests_, (Lines{"policyDelete web-ipv4", "policyDelete web-ipv4"}));
   EXPECT_EQ(only().state, PolicyState::failed);
   EXPECT_FALSE(only().overdue);
   EXPECT_EQ(only().text, "the rules client still holds it: busy");
}

TEST_F(PolicyAgentTest, whatIsInvalidIsNotTriedAgainBeforeAReload) {
   answerText_ = "invalid: no";
   start(onePolicy("Ethernet1", oneClass));
   EXPECT_EQ(timer_, std::nullopt);
   answerText_ = {};
   EXPECT_EQ(reload(onePolicy("Ethernet1", oneClass)).text(), "1 operation\n");
   EXPECT_EQ(only().state, PolicyState::programmed);
}

TEST_F(PolicyAgentTest, aReloadOfTheSameFileTriesAgainWhatIsOverdue) {
   silent_ = 1;
   start(onePolicy("Ethernet1", oneClass));
   timeUp();
   EXPECT_EQ(reload(onePolicy("Ethernet1", oneClass)).text(), "1 operation\n");
   EXPECT_EQ(only().state, PolicyState::programmed);
}

TEST_F(PolicyAgentTest, theSecondOfTwoInterfacesRepairsTheRefusalOfTheFirst) {
   start(onePolicy("Ethernet1", oneClass));
   silent_ = 1;
   EXPECT_TRUE(reload(onePolicy("Ethernet1, Ethernet2, Ethernet3", oneClass)).accepted);
   answerText_ = "busy";
   answer(2);
   answerText_ = {};
   drain();
   EXPECT_EQ(requests_, (Lines{"policyIntfUpdate web-ipv4", "policyUpdate web-ipv4"}));
   EXPECT_EQ(only().state, PolicyState::programmed);
   EXPECT_EQ(interfaces(), (Lines{"Ethernet1", "Ethernet2", "Ethernet3"}));
}

// ---- Removals that are not confirmed ----

TEST_F(PolicyAgentTest, aRemovalThatFailsIsMadeAgainUntilItSucceeds) {
   start(onePolicy("Ethernet1", oneClass));
   answerText_ = "busy";
   EXPECT_TRUE(reload(noPolicies).accepted);
   EXPECT_EQ(only().state, PolicyState::failed);
   EXPECT_EQ(only().text, "the rules client still holds it: busy");
   EXPECT_EQ(reload(noPolicies).text(), "1 operation\n");
   EXPECT_EQ(requests_, Lines{"policyDelete web-ipv4"});
   EXPECT_EQ(only().state, PolicyState::failed);
   answerText_ = {};
   ASSERT_TRUE(timer_);
   timeUp(); // the time until the next attempt
   EXPECT_EQ(requests_, (Lines{"policyDelete web-ipv4", "policyDelete web-ipv4"}));
   EXPECT_EQ(only().state, PolicyState::removed);
   EXPECT_EQ(timer_, std::nullopt);
   EXPECT_TRUE(reload(noPolicies).accepted);
   EXPECT_EQ(states(), Lines{});
}

TEST_F(PolicyAgentTest, whatTheRulesClientMayHoldIsNotForgotten) {
   start(onePolicy("Ethernet1", oneClass));
   silent_ = 100;
   EXPECT_TRUE(reload(noPolicies).accepted);
   timeUp();
   EXPECT_TRUE(reload(noPolicies).accepted);
   timeUp();
   silent_ = 0;
   EXPECT_TRUE(reload(onePolicy("Ethernet1", "")).accepted); // back, and without rules
   EXPECT_EQ(requests_, Lines{"policyDelete web-ipv4"});
   EXPECT_EQ(only().state, PolicyState::empty);
}

TEST_F(PolicyAgentTest, deleteAllDoesNotCallWhatIsStillHeldRemoved) {
   start(onePolicy("Ethernet1", oneClass));
   answerText_ = "busy";
   EXPECT_TRUE(reload(noPolicies).accepted);
   agent_->deleteAll();
   drain();
   EXPECT_EQ(only().state, PolicyState::failed);
   EXPECT_EQ(only().text, "the rules client still holds it: busy");
   EXPECT_TRUE(agent_->idle());
}

TEST_F(PolicyAgentTest, aRemovalThatIsNotConfirmedIsOverdueUntilItIs) {
   start(pAndQ);
   silent_ = 1;
   EXPECT_TRUE(reload(onlyP).accepted);
   timeUp();
   EXPECT_EQ(agent_->report()[1].state, PolicyState::waiting);
   EXPECT_TRUE(agent_->report()[1].overdue);
   answer(3);
   drain();
   EXPECT_EQ(states(), (Lines{"P ipv4 programmed", "Q ipv4 removed"}));
}

TEST_F(PolicyAgentTest, whatWasDeletedOnlyByHalfIsCreatedByTheNextFile) {
   start(onlyP);
   agent_->deleteAll();
   drain();
   EXPECT_EQ(states(), Lines{"P ipv4 removed"});
   EXPECT_TRUE(reload(pAndQ).accepted);
   EXPECT_EQ(states(), (Lines{"P ipv4 programmed", "Q ipv4 programmed"}));
}

} // namespace
} // namespace Postcard::Agent
