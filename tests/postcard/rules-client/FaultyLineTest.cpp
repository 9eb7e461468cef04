// Everything that can be made to go wrong on the line between the records and a rules client.
#include "support/FaultyLine.h"

#include "ClientFixture.h"

namespace {

using namespace OruPostcardTelemetry;
using RulesClientTest::AclRecords;
using RulesClientTest::Texts;
using TestSupport::InjectedFailure;

using FaultyClient = RulesClientTest::ClientFixture<TestSupport::FaultyLine>;

TEST_F(FaultyClient, refusesTheNextRequests) {
   line_->inject({InjectedFailure::refuse, "no such luck"}, 2);
   EXPECT_EQ(create("a-ipv4", 1), "no such luck");
   EXPECT_EQ(status_->statusType(), statusFailure);
   EXPECT_EQ(create("a-ipv4", 1), "no such luck");
   EXPECT_EQ(entries("a-ipv4"), 0U);
   EXPECT_EQ(create("a-ipv4", 1), "");
   EXPECT_EQ(entries("a-ipv4"), 1U);
}

TEST_F(FaultyClient, answersLateWhenToldTo) {
   line_->inject({InjectedFailure::late, ""}, 2);
   post(policyCreate, AclRecords{"a-ipv4"}.rules(1).data());
   post(policyCreate, AclRecords{"b-ipv4"}.rules(11).data());
   EXPECT_EQ(status_->kickResponse(), 0U);
   EXPECT_EQ(line_->heldAnswers(), 2U);
   EXPECT_EQ(entries("a-ipv4"), 1U); // done, only not told
   EXPECT_EQ(create("c-ipv4", 1), "");
   const Texts& seen = watch();
   line_->releaseAnswers();
   EXPECT_EQ(line_->heldAnswers(), 0U);
   EXPECT_EQ(seen, (Texts{"response 1", "status 'full: b-ipv4 needs 11 entries, 9 of 10 are free'",
                          "type statusFailure", "response 2"}));
}

TEST_F(FaultyClient, neverAnswers) {
   line_->inject({InjectedFailure::never, ""});
   post(policyCreate, AclRecords{"a-ipv4"}.rules(1).data());
   EXPECT_EQ(status_->kickResponse(), 0U);
   EXPECT_EQ(entries("a-ipv4"), 0U);
   EXPECT_EQ(line_->requests(), 1U);
   EXPECT_EQ(create("a-ipv4", 1), "");
   EXPECT_EQ(status_->kickResponse(), 2U);
}

TEST_F(FaultyClient, answersTwice) {
   line_->inject({InjectedFailure::twice, ""});
   const Texts& seen = watch();
   create("a-ipv4", 1);
   EXPECT_EQ(seen, (Texts{"response 1", "response 0", "response 1"}));
}

TEST_F(FaultyClient, theSecondAnswerMayComeWhenTheNextRequestIsUnderWay) {
   makeDeferring();
   line_->inject({InjectedFailure::twice, ""});
   post(policyCreate, AclRecords{"a-ipv4"}.rules(1).data());
   queue_.at(0)();
   post(policyCreate, AclRecords{"b-ipv4"}.rules(11).data());
   const Texts& seen = watch();
   queue_.at(2)();
   queue_.at(1)();
   EXPECT_EQ(seen, (Texts{"status 'full: b-ipv4 needs 11 entries, 9 of 10 are free'",
                          "type statusFailure", "response 2", "status ''", "type statusSuccess",
                          "response 1"}));
}

TEST_F(FaultyClient, answersARequestThatIsGone) {
   create("a-ipv4", 1);
   line_->inject({InjectedFailure::gone, "from another time"});
   const Texts& seen = watch();
   EXPECT_EQ(create("b-ipv4", 1), "");
   EXPECT_EQ(seen, (Texts{"status 'from another time'", "type statusFailure", "response 0",
                          "response 1", "status ''", "type statusSuccess", "response 2"}));
   EXPECT_EQ(entries("b-ipv4"), 1U);
}

TEST_F(FaultyClient, failuresComeInTheOrderOfTheirInjection) {
   line_->inject({InjectedFailure::never, ""});
   line_->inject({InjectedFailure::refuse, "x"});
   line_->inject({InjectedFailure::late, ""});
   for (int i = 0; i < 3; ++i) {
      post(policyCreate, AclRecords{"a-ipv4"}.rules(1).data());
   }
   EXPECT_EQ(status_->kickResponse(), 2U);
   EXPECT_EQ(status_->status(), "x");
   line_->releaseAnswers();
   EXPECT_EQ(status_->kickResponse(), 3U);
}

} // namespace
