// `recreatePolicy`: a new configuration in place of the old one, with its past.
#include "support/LifecycleRecords.h"
#include "support/RuleText.h"

namespace OruPostcardTelemetry {
namespace {

using TestSupport::by;
using TestSupport::Lines;
using TestSupport::together;
using TestSupport::told;
using TestSupport::TraceCapture;

class LifecycleRecreate : public TestSupport::Lifecycle {
 protected:
   // Gives the configuration these texts, and the next key.
   void historyIs(const std::vector<std::pair<U32, const char*>>& texts, U32 next) {
      const auto status = config()->aclConfigStatus();
      status->statusInOrderDelAll();
      for (const auto& [key, text] : texts) {
         status->statusInOrderIs(key, Pello::String{text});
      }
      status->currentIndexIs(next);
   }
   // Without the history's lines, which differ.
   static Lines tracesUpToHistory(bool programmed, bool updated) {
      return together(
            {by("recreatePolicy", {"8", "9 Policy : p/s, Match Type : 0"}),
             keyTraces(),
             {"8 deleteAclConfig"},
             keyTraces(),
             {"8 createAclConfig"},
             keyTraces(),
             by("recreatePolicy", {"5 Adding interface from intf4"}),
             intfTraces("Ethernet1"),
             by("recreatePolicy",
                {std::string{"5 Programmed Policy : "} + (programmed ? "true" : "false"),
                 std::string{"5 Rules Client Updated : "} + (updated ? "true" : "false")})});
   }
};

TEST_F(LifecycleRecreate, itMakesANewObjectUnderTheSameKey) {
   create();
   const auto old = config();
   log.take();
   EXPECT_EQ(recreate(), "");
   EXPECT_NE(config(), old);
   EXPECT_EQ(log.take(), (Lines{"aclConfigColl -p-ipv4", "aclConfigColl +p-ipv4"}));
   EXPECT_EQ(request->kickRequest(), 0U);
}

TEST_F(LifecycleRecreate, rulesAndInterfacesComeFromThePolicyAlone) {
   program();
   addIntf("Ethernet2");
   policy.changeable()->intf4Del(Orlix::IntfId{"Ethernet1"});
   policy.intf4("Ethernet3").intf6("Ethernet4");
   helper->rules = {"new", "newer"};
   recreate();
   EXPECT_EQ(interfaces(*config()), (Lines{"Ethernet3"}));
   EXPECT_EQ(TestSupport::namesByIndex(*config()), (Lines{"0 new", "1 newer"}));
   EXPECT_EQ(TestSupport::sortedNames(*config()), (Lines{"new", "newer"}));
}

TEST_F(LifecycleRecreate, theFlagsAreCarriedOver) {
   for (const bool programmed : {false, true}) {
      for (const bool updated : {false, true}) {
         create();
         config()->programmedPolicyIs(programmed);
         config()->rulesClientUpdatedIs(updated);
         recreate();
         EXPECT_EQ(config()->programmedPolicy(), programmed);
         EXPECT_EQ(config()->rulesClientUpdated(), updated);
         remove();
      }
   }
}

TEST_F(LifecycleRecreate, whatRuleGenerationDoesToTheFlagsIsOverwritten) {
   create();
   helper->whileMakingRules = [](PostcardTelemetryAclConfig& config) {
      config.programmedPolicyIs(true);
      config.rulesClientUpdatedIs(true);
      config.aclConfigStatus()->statusInOrderIs(0, "mine");
   };
   historyIs({{4, "theirs"}}, 5);
   recreate();
   EXPECT_FALSE(config()->programmedPolicy());
   EXPECT_FALSE(config()->rulesClientUpdated());
   EXPECT_EQ(history(*config()), (Lines{"0 theirs", "next 1"}));
}

TEST_F(LifecycleRecreate, theHistoryIsRenumberedWithoutGaps) {
   const struct {
      std::vector<std::pair<U32, const char*>> old;
      U32 next;
      Lines expected;
   } rows[] = {
         {{}, 0, {"next 0"}},
         {{}, 3, {"next 0"}},
         {{{0, ""}}, 1, {"0 ", "next 1"}},
         {{{0, "a"}, {2, "b"}, {5, "c"}}, 6, {"0 a", "1 b", "2 c", "next 3"}},
         {{{7, "z"}, {3, "a"}}, 0, {"0 a", "1 z", "next 2"}},
         {{{4294967295U, "last"}, {1, "a"}, {2, "a"}}, 0, {"0 a", "1 a", "2 last", "next 3"}},
   };
   for (const auto& row : rows) {
      create();
      historyIs(row.old, row.next);
      recreate();
      EXPECT_EQ(history(*config()), row.expected);
      remove();
   }
}

TEST_F(LifecycleRecreate, withoutAHistoryThereIsNothingToCarryOver) {
   program();
   config()->aclConfigStatusDel();
   EXPECT_EQ(recreate(), "");
   EXPECT_EQ(history(*config()), (Lines{"next 0"}));
   EXPECT_TRUE(config()->programmedPolicy());
}

TEST_F(LifecycleRecreate, theNextCommitIsAnUpdate) {
   create();
   commit();
   const auto old = config();
   recreate();
   EXPECT_EQ(request->aclConfig(), old) << "the rules client still holds what it was given";
   log.take();
   commit();
   EXPECT_EQ(request->event(), policyUpdate);
   EXPECT_EQ(request->aclConfig(), config());
   EXPECT_EQ(log.take(), (Lines{"event policyCreate", "aclConfig p-ipv4", "kickRequest 1"}));
}

TEST_F(LifecycleRecreate, withoutACommitTheNextOneIsACreation) {
   create();
   recreate();
   commit();
   EXPECT_EQ(request->event(), policyCreate);
}

TEST_F(LifecycleRecreate, theOldConfigurationDiesAtTheEnd) {
   const auto living = [] { return PostcardTelemetryAclConfig::memAllocationTracker_.live(); };
   create();
   const U64 before = living();
   U64 meanwhile = 0;
   helper->whileMakingRules = [&](PostcardTelemetryAclConfig&) { meanwhile = living(); };
   recreate();
   EXPECT_EQ(meanwhile, before + 1);
   EXPECT_EQ(living(), before);
}

TEST_F(LifecycleRecreate, aMessageIsReportedAfterTheHistoryIsThere) {
   program();
   helper->rulesResult = "wrong";
   Lines then;
   log.onLine = [&](const std::string& line) {
      if (line == "asyncOperationResult wrong") {
         then = history(*config());
         then.push_back(config()->programmedPolicy() ? "programmed" : "not programmed");
      }
   };
   EXPECT_EQ(recreate(), "wrong");
   EXPECT_EQ(then, (Lines{"0 ", "next 1", "programmed"}));
   EXPECT_EQ(log.take(), (Lines{"aclConfigColl -p-ipv4", "aclConfigColl +p-ipv4",
                                "asyncOperationResult wrong"}));
}

TEST_F(LifecycleRecreate, noRulesIsASuccessThatIsReported) {
   for (const char* message :
        {"No rules configured in policy  p/s", "a: No rules configured in policy, b"}) {
      program();
      helper->rulesResult = message;
      EXPECT_EQ(recreate(), "");
      EXPECT_EQ(log.take(),
                (Lines{"aclConfigColl -p-ipv4", "aclConfigColl +p-ipv4", "asyncOperationResult "}));
      EXPECT_TRUE(config()->rulesClientUpdated());
      helper->rulesResult = {};
      remove();
   }
}

TEST_F(LifecycleRecreate, theOtherFamilyTakesItsOwnInterfaces) {
   policy.intf6("Ethernet7");
   create(ipv4);
   create(ipv6);
   const auto four = config("p-ipv4");
   EXPECT_EQ(recreate(ipv6), "");
   EXPECT_EQ(interfaces(*config("p-ipv6")), (Lines{"Ethernet6", "Ethernet7"}));
   EXPECT_EQ(config("p-ipv6")->aclType(), Acl::AclType{1});
   EXPECT_EQ(config("p-ipv4"), four);
}

TEST_F(LifecycleRecreate, anAnswerToTheOldOneGoesToTheNewOne) {
   create();
   commit();
   const auto old = config();
   recreate();
   EXPECT_EQ(fail("late"), "late");
   EXPECT_EQ(history(*config()), (Lines{"0 late", "next 1"}));
   EXPECT_EQ(history(*old), (Lines{"next 0"}));
}

TEST_F(LifecycleRecreate, tracesWithoutAHistory) {
   create();
   const TraceCapture capture;
   recreate();
   EXPECT_EQ(told(capture),
             together({tracesUpToHistory(false, false),
                       by("recreatePolicy", {"5 Number of Statuses Strings in Old Config : 0"})}));
}

TEST_F(LifecycleRecreate, tracesTheHistoryAndWhatBecomesOfAMessage) {
   program();
   historyIs({{1, "a"}, {4, ""}}, 5);
   helper->rulesResult = "No rules configured in policy  p/s";
   const TraceCapture capture;
   recreate();
   EXPECT_EQ(told(capture),
             together({tracesUpToHistory(true, true),
                       by("recreatePolicy",
                          {"5 Number of Statuses Strings in Old Config : 2",
                           "5 Status : a Current Index : 0", "5 Status :  Current Index : 1",
                           "5 Original Return Status: No rules configured in policy  p/s",
                           "5 Modified Return Status: "})}));
   helper->rulesResult = "wrong";
   recreate();
   EXPECT_EQ(told(capture).back(), "5 recreatePolicy: Modified Return Status: wrong");
}

TEST_F(LifecycleRecreate, tracesTheOtherFamily) {
   create(ipv6);
   const TraceCapture capture;
   recreate(ipv6);
   EXPECT_EQ(told(capture)[1], "9 recreatePolicy: Policy : p/s, Match Type : 1");
   EXPECT_EQ(capture.count("5 Adding interface from intf6"), 1U);
   EXPECT_EQ(capture.count("5 Adding interface from intf4"), 0U);
}

} // namespace
} // namespace OruPostcardTelemetry
