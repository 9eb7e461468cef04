// `deletePolicy`: the rules client is told of what it knows, then the configuration goes.
#include "support/LifecycleRecords.h"

namespace OruPostcardTelemetry {
namespace {

using TestSupport::by;
using TestSupport::Lines;
using TestSupport::together;
using TestSupport::told;
using TestSupport::TraceCapture;
using LifecycleDelete = TestSupport::Lifecycle;

U64 living() {
   return PostcardTelemetryAclConfig::memAllocationTracker_.live();
}

TEST_F(LifecycleDelete, whatTheRulesClientNeverSawGoesSilently) {
   create();
   const U64 before = living();
   log.take();
   EXPECT_EQ(remove(), "");
   EXPECT_EQ(log.take(), (Lines{"aclConfigColl -p-ipv4"}));
   EXPECT_EQ(request->aclConfig(), nullptr);
   EXPECT_EQ(living(), before - 1);
}

TEST_F(LifecycleDelete, whatWasCommittedIsTakenBack) {
   create();
   commit();
   log.take();
   EXPECT_EQ(remove(), "");
   EXPECT_EQ(log.take(), (Lines{"event policyCreate", "kickRequest 1", "aclConfigColl -p-ipv4"}));
   EXPECT_EQ(request->event(), policyDelete);
   EXPECT_EQ(request->currIntf(), Orlix::IntfId{});
   EXPECT_EQ(config(), nullptr);
}

TEST_F(LifecycleDelete, theRequestKeepsTheConfigurationAlive) {
   program();
   remove();
   ASSERT_NE(request->aclConfig(), nullptr);
   EXPECT_EQ(request->aclConfig()->aclConfigKey(), "p-ipv4");
   EXPECT_EQ(request->aclConfig()->ruleByNames(), 1U);
   EXPECT_EQ(interfaces(*request->aclConfig()), (Lines{"Ethernet1"}));
   EXPECT_TRUE(request->aclConfig()->rulesClientUpdated());
   const U64 before = living();
   request->aclConfigIs(nullptr);
   EXPECT_EQ(living(), before - 1);
}

TEST_F(LifecycleDelete, itAsksForRemovalWhateverTheAnswerWas) {
   create();
   commit();
   fail("full");
   EXPECT_EQ(remove(), "");
   EXPECT_EQ(request->event(), policyDelete);
}

TEST_F(LifecycleDelete, theInterfaceOfAnEarlierRequestStays) {
   program();
   addIntf("Ethernet2");
   log.take();
   remove();
   EXPECT_EQ(request->currIntf(), Orlix::IntfId{"Ethernet2"});
   EXPECT_EQ(log.take(),
             (Lines{"event policyIntfUpdate", "kickRequest 2", "aclConfigColl -p-ipv4"}));
}

TEST_F(LifecycleDelete, theOtherFamilyStays) {
   program(ipv4);
   program(ipv6);
   remove(ipv4);
   EXPECT_EQ(config("p-ipv4"), nullptr);
   EXPECT_NE(config("p-ipv6"), nullptr);
   EXPECT_TRUE(config("p-ipv6")->programmedPolicy());
}

TEST_F(LifecycleDelete, withoutRulesItIsTheSame) {
   helper->rules.clear();
   create();
   commit();
   log.take();
   EXPECT_EQ(remove(), "");
   EXPECT_EQ(log.take(), (Lines{"aclConfigColl -p-ipv4"}));
}

TEST_F(LifecycleDelete, anUnknownPolicyIsReported) {
   EXPECT_EQ(remove(ipv4), "Delete Policy received for a non-existent policy, Policy : p/s "
                           "Match Option : 0");
   EXPECT_EQ(remove(ipv6), "Delete Policy received for a non-existent policy, Policy : p/s "
                           "Match Option : 1");
   const TestSupport::PolicyRecords plain{"plain"};
   EXPECT_EQ(helper->deletePolicy(plain.data(), ipv4),
             "Delete Policy received for a non-existent policy, Policy : plain Match Option : 0");
   EXPECT_EQ(log.take(), Lines{});
   EXPECT_EQ(helper->aclConfigColls(), 0U);
}

TEST_F(LifecycleDelete, theSecondTimeIsReported) {
   program();
   remove();
   log.take();
   EXPECT_EQ(remove(), "Delete Policy received for a non-existent policy, Policy : p/s "
                       "Match Option : 0");
   EXPECT_EQ(log.take(), Lines{});
   EXPECT_EQ(request->kickRequest(), 2U);
}

// The key does not know the scope.
TEST_F(LifecycleDelete, aPolicyOfTheSameNameIsTheSame) {
   create();
   const TestSupport::PolicyRecords other{"p", "elsewhere"};
   EXPECT_EQ(helper->deletePolicy(other.data(), ipv4), "");
   EXPECT_EQ(config(), nullptr);
}

TEST_F(LifecycleDelete, afterwardsTheNameIsFree) {
   program();
   remove();
   EXPECT_EQ(create(), "");
   EXPECT_FALSE(config()->rulesClientUpdated());
   EXPECT_FALSE(config()->programmedPolicy());
   EXPECT_EQ(history(*config()), (Lines{"next 0"}));
   commit();
   EXPECT_EQ(request->event(), policyCreate);
}

TEST_F(LifecycleDelete, tracesWithoutARequest) {
   create();
   const TraceCapture capture;
   remove();
   EXPECT_EQ(told(capture), together({{"8 deletePolicy"},
                                      keyTraces(),
                                      by("deletePolicy", {"5 Rules Client Updated : false"}),
                                      {"8 deleteAclConfig"},
                                      keyTraces()}));
}

TEST_F(LifecycleDelete, tracesWithARequest) {
   program();
   const TraceCapture capture;
   remove();
   EXPECT_EQ(told(capture), together({{"8 deletePolicy"},
                                      keyTraces(),
                                      by("deletePolicy", {"5 Rules Client Updated : true"}),
                                      requestTraces(2),
                                      {"8 deleteAclConfig"},
                                      keyTraces()}));
}

TEST_F(LifecycleDelete, tracesAnUnknownPolicy) {
   const TraceCapture capture;
   remove();
   EXPECT_EQ(told(capture),
             together({{"8 deletePolicy"},
                       keyTraces(),
                       by("deletePolicy", {"0 Error: Delete Policy received for a non-existent "
                                           "policy, Policy : p/s Match Option : 0"})}));
}

} // namespace
} // namespace OruPostcardTelemetry
