// `createPolicy`: what it builds, what it reports, and in which order.
#include "support/LifecycleRecords.h"
#include "support/RuleText.h"

namespace OruPostcardTelemetry {
namespace {

using TestSupport::by;
using TestSupport::HelperRecords;
using TestSupport::Lines;
using TestSupport::together;
using TestSupport::told;
using TestSupport::TraceCapture;
using LifecycleCreate = TestSupport::Lifecycle;

TEST_F(LifecycleCreate, successIsSilent) {
   EXPECT_EQ(create(), "");
   EXPECT_EQ(log.take(), (Lines{"aclConfigColl +p-ipv4"}));
   EXPECT_EQ(interfaces(*config()), (Lines{"Ethernet1"}));
   EXPECT_EQ(TestSupport::namesByIndex(*config()), (Lines{"0 rule"}));
   EXPECT_FALSE(config()->programmedPolicy());
   EXPECT_FALSE(config()->rulesClientUpdated());
   EXPECT_EQ(history(*config()), (Lines{"next 0"}));
}

TEST_F(LifecycleCreate, eachFamilyHasItsOwnInterfaces) {
   policy.intf4("Ethernet2").intf6("Ethernet7").intf6("Ethernet2");
   EXPECT_EQ(create(ipv4), "");
   EXPECT_EQ(create(ipv6), "");
   EXPECT_EQ(interfaces(*config("p-ipv4")), (Lines{"Ethernet1", "Ethernet2"}));
   EXPECT_EQ(interfaces(*config("p-ipv6")), (Lines{"Ethernet2", "Ethernet6", "Ethernet7"}));
   EXPECT_EQ(config("p-ipv4")->aclType(), Acl::AclType{0});
   EXPECT_EQ(config("p-ipv6")->aclType(), Acl::AclType{1});
}

TEST_F(LifecycleCreate, interfacesAreEnteredBeforeRulesAreMade) {
   Lines entered;
   helper->whileMakingRules = [&](PostcardTelemetryAclConfig& config) {
      entered = interfaces(config);
   };
   create();
   EXPECT_EQ(entered, (Lines{"Ethernet1"}));
   policy.intf4("Ethernet2");
   recreate();
   EXPECT_EQ(entered, (Lines{"Ethernet1", "Ethernet2"}));
}

TEST_F(LifecycleCreate, theOtherFamilyNeedsNoInterfaces) {
   const auto only6 = TestSupport::PolicyRecords{"six"}.intf6("Ethernet6");
   const auto only4 = TestSupport::PolicyRecords{"four"}.intf4("Ethernet4");
   EXPECT_EQ(helper->createPolicy(only6.data(), ipv6), "");
   EXPECT_EQ(helper->createPolicy(only4.data(), ipv4), "");
   EXPECT_EQ(interfaces(*config("six-ipv6")), (Lines{"Ethernet6"}));
   EXPECT_EQ(interfaces(*config("four-ipv4")), (Lines{"Ethernet4"}));
}

struct Outcome {
   const char* made;
   const char* returned;
};
constexpr Outcome outcomes[] = {
      {"No rules configured in policy", ""},
      {"No rules configured in policy  p/s", ""},
      {"Class a: No rules configured in policy p, sorry", ""},
      {"xNo rules configured in policyx", ""},
      {"No rules configured in polic", "No rules configured in polic"},
      {"no rules configured in policy", "no rules configured in policy"},
      {"No rules  configured in policy", "No rules  configured in policy"},
      {" ", " "},
      {"Unsupported match(es): 'Fragments', in configuration",
       "Unsupported match(es): 'Fragments', in configuration"},
};

TEST_F(LifecycleCreate, anyMessageIsReportedOnceAndNoRulesIsNone) {
   for (const auto& [made, returned] : outcomes) {
      helper->rulesResult = made;
      EXPECT_EQ(create(), returned) << made;
      EXPECT_EQ(log.take(),
                (Lines{"aclConfigColl +p-ipv4", std::string{"asyncOperationResult "} + returned}));
      EXPECT_EQ(config()->ruleByNames(), 1U) << "what was built stays";
      remove();
      log.take();
   }
}

TEST_F(LifecycleCreate, theReportCarriesTheTime) {
   helper->rulesResult = "wrong";
   const double before = Kiv::System::currentTime();
   create();
   const double after = Kiv::System::currentTime();
   EXPECT_LE(before, helper->asyncOperationResult().time());
   EXPECT_GE(after, helper->asyncOperationResult().time());
}

TEST_F(LifecycleCreate, aSuccessLeavesAnEarlierReport) {
   helper->rulesResult = "wrong";
   create();
   const auto earlier = helper->asyncOperationResult();
   helper->rulesResult = {};
   create(ipv6);
   EXPECT_EQ(helper->asyncOperationResult(), earlier);
}

TEST_F(LifecycleCreate, tracesSuccess) {
   const TraceCapture capture;
   create();
   EXPECT_EQ(told(capture), together({by("createPolicy", {"8", "9 Policy : p/s, Match Type : 0"}),
                                      {"8 createAclConfig"},
                                      keyTraces(),
                                      by("createPolicy", {"5 Adding interface from intf4"}),
                                      intfTraces("Ethernet1")}));
}

TEST_F(LifecycleCreate, tracesTheOtherFamily) {
   const TraceCapture capture;
   create(ipv6);
   EXPECT_EQ(told(capture), together({by("createPolicy", {"8", "9 Policy : p/s, Match Type : 1"}),
                                      {"8 createAclConfig"},
                                      keyTraces(ipv6),
                                      by("createPolicy", {"5 Adding interface from intf6"}),
                                      intfTraces("Ethernet6", false, "p-ipv6")}));
}

TEST_F(LifecycleCreate, tracesWhatBecomesOfAMessage) {
   for (const auto& [made, returned] : outcomes) {
      helper->rulesResult = made;
      const TraceCapture capture;
      create();
      const Lines lines = told(capture);
      ASSERT_EQ(lines.size(), 13U);
      EXPECT_EQ(lines[11], std::string{"5 createPolicy: Original Return Status: "} + made);
      EXPECT_EQ(lines[12], std::string{"5 createPolicy: Modified Return Status: "} + returned);
      remove();
   }
}

// With the real rules: a class that can be expressed, then one that cannot.
TEST_F(LifecycleCreate, whatWasBuiltBeforeTheMistakeStays) {
   policy.classMap("good").sample().filter4();
   policy.classMap("bad").sample().filter4().data()->fragmentsIs();
   EXPECT_EQ(records.helper->createPolicy(policy.data(), ipv4),
             "Unsupported match(es): 'Fragments', in configuration");
   EXPECT_EQ(TestSupport::namesByIndex(*records.config("p-ipv4")),
             (Lines{"0 good-ipv4-tcp", "1 good-ipv4-udp"}));
   EXPECT_EQ(records.helper->asyncOperationResult().status(),
             "Unsupported match(es): 'Fragments', in configuration");
}

TEST_F(LifecycleCreate, aPolicyWithoutClassesIsCreated) {
   policy.noRules(ipv4);
   TestSupport::RecordLog realLog{*request, *records.helper};
   EXPECT_EQ(records.helper->createPolicy(policy.data(), ipv4), "");
   EXPECT_EQ(realLog.take(), (Lines{"aclConfigColl +p-ipv4", "asyncOperationResult "}));
   EXPECT_EQ(interfaces(*records.config("p-ipv4")), (Lines{"Ethernet1"}));
}

} // namespace
} // namespace OruPostcardTelemetry
