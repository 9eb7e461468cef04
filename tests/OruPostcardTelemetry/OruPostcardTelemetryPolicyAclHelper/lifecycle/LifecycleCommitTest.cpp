// `commitPolicy`: what reaches the rules client, and what happens without rules.
#include "support/LifecycleRecords.h"

namespace OruPostcardTelemetry {
namespace {

using TestSupport::by;
using TestSupport::Lines;
using TestSupport::together;
using TestSupport::told;
using TestSupport::TraceCapture;
using LifecycleCommit = TestSupport::Lifecycle;

TEST_F(LifecycleCommit, theFirstPostsACreation) {
   create();
   log.take();
   EXPECT_EQ(commit(), "");
   EXPECT_EQ(request->event(), policyCreate);
   EXPECT_EQ(request->aclConfig(), config());
   EXPECT_EQ(request->currIntf(), Orlix::IntfId{});
   EXPECT_EQ(request->kickRequest(), 1U);
   EXPECT_TRUE(config()->rulesClientUpdated());
   EXPECT_FALSE(config()->programmedPolicy());
   EXPECT_EQ(log.take(), (Lines{"aclConfig nothing", "kickRequest 0"}));
}

TEST_F(LifecycleCommit, everyLaterOnePostsAnUpdate) {
   create();
   commit();
   log.take();
   EXPECT_EQ(commit(), "");
   EXPECT_EQ(request->event(), policyUpdate);
   EXPECT_EQ(request->currIntf(), Orlix::IntfId{});
   EXPECT_EQ(log.take(), (Lines{"event policyCreate", "kickRequest 1"}));
   EXPECT_EQ(commit(), "");
   EXPECT_EQ(log.take(), (Lines{"kickRequest 2"}));
   EXPECT_EQ(request->kickRequest(), 3U);
}

TEST_F(LifecycleCommit, anUpdateIsPostedWhateverTheAnswerWas) {
   create();
   commit();
   fail("full");
   commit();
   EXPECT_EQ(request->event(), policyUpdate);
   EXPECT_FALSE(config()->programmedPolicy());
}

TEST_F(LifecycleCommit, familiesAreSeparateRequests) {
   create(ipv4);
   create(ipv6);
   commit(ipv4);
   log.take();
   commit(ipv6);
   EXPECT_EQ(request->event(), policyCreate);
   EXPECT_EQ(request->aclConfig(), config("p-ipv6"));
   EXPECT_EQ(log.take(), (Lines{"aclConfig p-ipv4", "kickRequest 1"}));
}

TEST_F(LifecycleCommit, withoutRulesItPostsNothing) {
   helper->rules.clear();
   create();
   log.take();
   EXPECT_EQ(commit(), "");
   EXPECT_EQ(log.take(), (Lines{"asyncOperationResult "}));
   EXPECT_FALSE(config()->rulesClientUpdated());
   EXPECT_EQ(request->kickRequest(), 0U);
}

// The rules by name count; the order in which they match does not.
TEST_F(LifecycleCommit, rulesAreCountedByName) {
   create();
   config()->ruleByIndexDelAll();
   commit();
   EXPECT_EQ(request->kickRequest(), 1U);
   config()->ruleByIndexIs(0, config()->ruleByName("rule"));
   config()->ruleByNameDelAll();
   commit();
   EXPECT_EQ(request->kickRequest(), 1U);
   EXPECT_TRUE(config()->rulesClientUpdated()) << "what the rules client knows stays";
}

TEST_F(LifecycleCommit, theReportOfAnEmptyPolicyCarriesTheTime) {
   helper->rules.clear();
   create();
   const double before = Kiv::System::currentTime();
   commit();
   EXPECT_LE(before, helper->asyncOperationResult().time());
   EXPECT_GE(Kiv::System::currentTime(), helper->asyncOperationResult().time());
}

TEST_F(LifecycleCommit, tracesTheFirst) {
   create();
   const TraceCapture capture;
   commit();
   EXPECT_EQ(told(capture), together({{"8 commitPolicy"},
                                      keyTraces(),
                                      by("commitPolicy", {"5 Rules Client Updated : false"}),
                                      requestTraces(0)}));
}

TEST_F(LifecycleCommit, tracesALaterOne) {
   create();
   commit();
   const TraceCapture capture;
   commit();
   EXPECT_EQ(told(capture), together({{"8 commitPolicy"},
                                      keyTraces(),
                                      by("commitPolicy", {"5 Rules Client Updated : true"}),
                                      requestTraces(1)}));
}

TEST_F(LifecycleCommit, tracesThatThereAreNoRules) {
   helper->rules.clear();
   create();
   create(ipv6);
   const TraceCapture capture;
   commit();
   EXPECT_EQ(told(capture),
             together({{"8 commitPolicy"},
                       keyTraces(),
                       by("commitPolicy", {"5 Error: No rules configured in policy p-ipv4"})}));
   commit(ipv6);
   EXPECT_EQ(capture.count("5 Error: No rules configured in policy p-ipv6"), 1U);
}

} // namespace
} // namespace OruPostcardTelemetry
