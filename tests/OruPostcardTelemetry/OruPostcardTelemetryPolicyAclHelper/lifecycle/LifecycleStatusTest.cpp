// `updatePolicyStatus`: the rules client's answers become history, flag and text.
#include "support/LifecycleRecords.h"

namespace OruPostcardTelemetry {
namespace {

using TestSupport::by;
using TestSupport::Lines;
using TestSupport::told;
using TestSupport::TraceCapture;

class LifecycleStatus : public TestSupport::Lifecycle {
 protected:
   // A committed policy that waits for its answer.
   LifecycleStatus() {
      create();
      commit();
      log.take();
   }
};

TEST_F(LifecycleStatus, aSuccessReturnsNothing) {
   EXPECT_EQ(succeed(), "");
   EXPECT_TRUE(config()->programmedPolicy());
   EXPECT_EQ(history(*config()), (Lines{"0 ", "next 1"}));
}

TEST_F(LifecycleStatus, twoSuccessesAreTwoEntries) {
   EXPECT_EQ(succeed("programmed"), "");
   EXPECT_EQ(succeed(), "");
   EXPECT_TRUE(config()->programmedPolicy());
   EXPECT_EQ(history(*config()), (Lines{"0 programmed", "1 ", "next 2"}));
}

TEST_F(LifecycleStatus, aFailureReturnsItsText) {
   EXPECT_EQ(fail("table full"), "table full");
   EXPECT_FALSE(config()->programmedPolicy());
   EXPECT_EQ(history(*config()), (Lines{"0 table full", "next 1"}));
}

TEST_F(LifecycleStatus, aFailureWithoutATextIsAFailure) {
   EXPECT_EQ(fail(""), "");
   EXPECT_FALSE(config()->programmedPolicy());
   EXPECT_EQ(history(*config()), (Lines{"0 ", "next 1"}));
}

TEST_F(LifecycleStatus, theLatestAnswerCountsAndAllAreKept) {
   succeed("a");
   EXPECT_EQ(fail("b"), "b");
   EXPECT_FALSE(config()->programmedPolicy());
   EXPECT_EQ(succeed("c"), "");
   EXPECT_TRUE(config()->programmedPolicy());
   EXPECT_EQ(fail("c"), "c");
   EXPECT_FALSE(config()->programmedPolicy());
   EXPECT_EQ(history(*config()), (Lines{"0 a", "1 b", "2 c", "3 c", "next 4"}));
}

TEST_F(LifecycleStatus, anAnswerOfAnUnknownTypeIsNoSuccess) {
   const auto unknown = static_cast<PostcardTelemetryRulesClientSmStatusType>(7);
   EXPECT_EQ(helper->updatePolicyStatus(unknown, "what"), "what");
   EXPECT_FALSE(config()->programmedPolicy());
}

TEST_F(LifecycleStatus, nothingIsPublishedNorPosted) {
   succeed();
   fail("no");
   EXPECT_EQ(log.take(), Lines{});
   EXPECT_TRUE(config()->rulesClientUpdated());
}

TEST_F(LifecycleStatus, theFlagOfTheRequestIsNotTouched) {
   config()->rulesClientUpdatedIs(false);
   succeed();
   EXPECT_FALSE(config()->rulesClientUpdated());
}

TEST_F(LifecycleStatus, theIndexGoesOnFromWhereItIs) {
   config()->aclConfigStatus()->currentIndexIs(7);
   fail("a");
   fail("b");
   EXPECT_EQ(history(*config()), (Lines{"7 a", "8 b", "next 9"}));
}

// Somebody has unlinked the history: it begins anew.
TEST_F(LifecycleStatus, aConfigurationWithoutAHistoryGetsOne) {
   fail("before");
   config()->aclConfigStatusDel();
   EXPECT_EQ(fail("table full"), "table full");
   EXPECT_EQ(history(*config()), (Lines{"0 table full", "next 1"}));
   EXPECT_FALSE(config()->programmedPolicy());
}

TEST_F(LifecycleStatus, anAnswerBelongsToTheLatestRequest) {
   create(ipv6);
   commit(ipv6);
   EXPECT_EQ(fail("meant for the other"), "meant for the other");
   EXPECT_EQ(history(*config("p-ipv4")), (Lines{"next 0"}));
   EXPECT_EQ(history(*config("p-ipv6")), (Lines{"0 meant for the other", "next 1"}));
}

// The configuration is found by its key, so whoever has the key now gets the answer.
TEST_F(LifecycleStatus, aNewPolicyOfTheOldNameGetsTheAnswer) {
   remove();
   const TestSupport::PolicyRecords other = TestSupport::PolicyRecords{"p", "t"}.intf4("Ethernet1");
   helper->createPolicy(other.data(), ipv4);
   EXPECT_EQ(fail("not removed"), "not removed");
   EXPECT_EQ(history(*config()), (Lines{"0 not removed", "next 1"}));
   EXPECT_EQ(history(*request->aclConfig()), (Lines{"next 0"}));
}

TEST_F(LifecycleStatus, tracesASuccess) {
   const TraceCapture capture;
   succeed("fine");
   EXPECT_EQ(told(capture),
             by("updatePolicyStatus", {"8",
                                       "9 Status Type : statusSuccess Event Type : policyCreate, "
                                       "Status String : fine",
                                       "5 Acl Config Key : p-ipv4", "5 Current Index : 0",
                                       "5 Programmed Policy : true"}));
}

TEST_F(LifecycleStatus, tracesAFailureOfALaterRequest) {
   succeed();
   addIntf("Ethernet2");
   const TraceCapture capture;
   fail("");
   EXPECT_EQ(told(capture), by("updatePolicyStatus",
                               {"8",
                                "9 Status Type : statusFailure Event Type : policyIntfUpdate, "
                                "Status String : ",
                                "5 Acl Config Key : p-ipv4", "5 Current Index : 1",
                                "5 Programmed Policy : false"}));
}

} // namespace
} // namespace OruPostcardTelemetry
