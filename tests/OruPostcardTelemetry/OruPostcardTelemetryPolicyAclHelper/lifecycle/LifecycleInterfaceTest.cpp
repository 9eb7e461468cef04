// `addIntfToPolicy`, `removeIntfFromPolicy` and `updateIntfInAclConfig`. The two operations differ
// in little, so most tests are made for both.
#include "support/LifecycleRecords.h"

namespace OruPostcardTelemetry {
namespace {

using TestSupport::by;
using TestSupport::Lines;
using TestSupport::together;
using TestSupport::told;
using TestSupport::TraceCapture;

class LifecycleInterface : public TestSupport::Lifecycle {
 protected:
   // Ethernet2 joins or leaves. Before it leaves, it is there.
   Kiv::String change(bool removal, MatchOption option = ipv4) {
      return removal ? removeIntf("Ethernet2", option) : addIntf("Ethernet2", option);
   }
   void prepare(bool removal) {
      if (removal) {
         policy.intf4("Ethernet2").intf6("Ethernet2");
      }
   }
   static Lines after(bool removal) {
      return removal ? Lines{"Ethernet1"} : Lines{"Ethernet1", "Ethernet2"};
   }
   static Lines before(bool removal) { return after(!removal); }
   static std::string notCommitted(bool removal, int option = 0) {
      return std::string{removal ? "Remove Interface from" : "Add Interface to"} +
             " Policy received for a non committed policy, aborting further processing,  "
             "Policy : p/s Match Option : " +
             std::to_string(option);
   }
   // Traces of the operation that `change` calls.
   static Lines its(bool removal, const Lines& lines) {
      return by(removal ? "removeIntfFromPolicy" : "addIntfToPolicy", lines);
   }
   static Lines entryTraces(bool removal) {
      return its(removal,
                 {"8", "9 Policy : p/s, Match Type : 0, Interface : Ethernet2, "
                       "Logical Interface : Port-Channel9, VRF Name : red, Match Type : 0"});
   }
};

TEST_F(LifecycleInterface, aProgrammedPolicyPassesTheChangeOn) {
   for (const bool removal : {false, true}) {
      prepare(removal);
      program();
      request->currIntfIs({});
      log.take();
      const U32 requests = request->kickRequest();
      EXPECT_EQ(change(removal), "");
      EXPECT_EQ(interfaces(*config()), after(removal));
      EXPECT_EQ(request->event(), policyIntfUpdate);
      EXPECT_EQ(request->aclConfig(), config());
      EXPECT_EQ(request->currIntf(), Orlix::IntfId{"Ethernet2"});
      EXPECT_EQ(log.take(), (Lines{"event policyCreate", "currIntf ",
                                   "kickRequest " + std::to_string(requests)}));
      remove();
   }
}

TEST_F(LifecycleInterface, itIsTheProgrammedFlagThatCounts) {
   for (const bool removal : {false, true}) {
      prepare(removal);
      create();
      config()->programmedPolicyIs(true);
      log.take();
      EXPECT_EQ(change(removal), "");
      EXPECT_EQ(log.take().back(), "kickRequest " + std::to_string(request->kickRequest() - 1));
      EXPECT_TRUE(config()->rulesClientUpdated());
      remove();
   }
}

TEST_F(LifecycleInterface, whatChangesNothingIsPassedOnAllTheSame) {
   program();
   EXPECT_EQ(addIntf("Ethernet1"), "");
   EXPECT_EQ(removeIntf("Ethernet2"), "");
   EXPECT_EQ(interfaces(*config()), (Lines{"Ethernet1"}));
   EXPECT_EQ(request->kickRequest(), 3U);
   EXPECT_EQ(request->currIntf(), Orlix::IntfId{"Ethernet2"});
}

TEST_F(LifecycleInterface, theLastInterfaceMayLeave) {
   program();
   EXPECT_EQ(removeIntf("Ethernet1"), "");
   EXPECT_EQ(interfaces(*config()), Lines{});
   EXPECT_EQ(request->event(), policyIntfUpdate);
}

TEST_F(LifecycleInterface, theEmptyInterfaceLeavesTheOneOfAnEarlierRequest) {
   program();
   addIntf("Ethernet2");
   log.take();
   EXPECT_EQ(addIntf(""), "");
   EXPECT_EQ(interfaces(*config()), (Lines{"", "Ethernet1", "Ethernet2"}));
   EXPECT_EQ(request->currIntf(), Orlix::IntfId{"Ethernet2"});
   EXPECT_EQ(log.take(), (Lines{"kickRequest 2"}));
}

// What is returned for a policy that is not programmed, by what the rules client has said so far.
TEST_F(LifecycleInterface, withoutAProgramTheLatestTextIsShown) {
   const struct {
      std::vector<std::pair<U32, const char*>> texts;
      U32 next;
      const char* shown; // null for our own message
   } rows[] = {
         {{}, 0, nullptr},
         {{{0, "ignored"}}, 0, nullptr},
         {{{0, "full"}}, 1, "full"},
         {{{0, "full"}, {1, "invalid"}}, 2, "invalid"},
         {{{0, "full"}, {1, ""}}, 2, ""},
         {{{0, "full"}, {1, "invalid"}}, 3, ""},
         {{}, 3, ""},
         {{{0, "full"}, {1, "invalid"}, {2, "later"}}, 2, "invalid"},
         {{{4294967294U, "last"}}, 4294967295U, "last"},
   };
   for (const bool removal : {false, true}) {
      for (const auto& row : rows) {
         prepare(removal);
         create();
         for (const auto& [key, text] : row.texts) {
            config()->aclConfigStatus()->statusInOrderIs(key, Pello::String{text});
         }
         config()->aclConfigStatus()->currentIndexIs(row.next);
         log.take();
         const std::string shown = row.shown != nullptr ? row.shown : notCommitted(removal);
         EXPECT_EQ(change(removal), shown);
         EXPECT_EQ(log.take(), (Lines{"asyncOperationResult " + shown}));
         EXPECT_EQ(interfaces(*config()), after(removal));
         remove();
      }
   }
}

// Somebody has unlinked the history: the rules client has said nothing.
TEST_F(LifecycleInterface, withoutAHistoryOurOwnMessageIsShown) {
   for (const bool removal : {false, true}) {
      prepare(removal);
      create();
      config()->aclConfigStatusDel();
      EXPECT_EQ(change(removal), notCommitted(removal));
      EXPECT_EQ(interfaces(*config()), after(removal));
      EXPECT_EQ(config()->aclConfigStatus(), nullptr);
      remove();
   }
}

TEST_F(LifecycleInterface, theMessageNamesTheFamily) {
   create(ipv6);
   EXPECT_EQ(addIntf("Ethernet2", ipv6), notCommitted(false, 1));
   EXPECT_EQ(removeIntf("Ethernet2", ipv6), notCommitted(true, 1));
   EXPECT_EQ(interfaces(*config("p-ipv6")), (Lines{"Ethernet6"}));
}

TEST_F(LifecycleInterface, aFailureAfterASuccessEndsPassingOn) {
   program();
   EXPECT_EQ(addIntf("Ethernet2"), "");
   fail("full");
   log.take();
   EXPECT_EQ(removeIntf("Ethernet2"), "full");
   EXPECT_EQ(log.take(), (Lines{"asyncOperationResult full"}));
   EXPECT_EQ(interfaces(*config()), (Lines{"Ethernet1"}));
   succeed("");
   EXPECT_EQ(addIntf("Ethernet2"), "");
   EXPECT_EQ(log.take().back(), "kickRequest 2");
}

TEST_F(LifecycleInterface, committedButUnansweredIsNotProgrammed) {
   create();
   commit();
   log.take();
   EXPECT_EQ(addIntf("Ethernet2"), notCommitted(false));
   EXPECT_EQ(log.take(), (Lines{"asyncOperationResult " + notCommitted(false)}));
   EXPECT_EQ(request->event(), policyCreate);
}

TEST_F(LifecycleInterface, theReportCarriesTheTime) {
   create();
   for (const bool removal : {false, true}) {
      const double start = Kiv::System::currentTime();
      change(removal);
      EXPECT_LE(start, helper->asyncOperationResult().time());
      EXPECT_GE(Kiv::System::currentTime(), helper->asyncOperationResult().time());
   }
}

TEST_F(LifecycleInterface, withoutRulesNothingChanges) {
   helper->rules.clear();
   for (const bool removal : {false, true}) {
      prepare(removal);
      create();
      config()->programmedPolicyIs(true); // makes no difference
      log.take();
      EXPECT_EQ(change(removal), "");
      EXPECT_EQ(log.take(), (Lines{"asyncOperationResult "}));
      EXPECT_EQ(interfaces(*config()), before(removal));
      EXPECT_FALSE(config()->rulesClientUpdated());
      remove();
   }
}

TEST_F(LifecycleInterface, updateIntfInAclConfigIsASet) {
   create();
   const Orlix::IntfId there{"Ethernet1"};
   const Orlix::IntfId elsewhere{"Ethernet9"};
   helper->updateIntfInAclConfig(config(), there, false);
   helper->updateIntfInAclConfig(config(), elsewhere, true);
   EXPECT_EQ(interfaces(*config()), (Lines{"Ethernet1"}));
   helper->updateIntfInAclConfig(config(), elsewhere, false);
   helper->updateIntfInAclConfig(config(), there, true);
   EXPECT_EQ(interfaces(*config()), (Lines{"Ethernet9"}));
}

TEST_F(LifecycleInterface, updateIntfInAclConfigTraces) {
   create();
   const TraceCapture capture;
   helper->updateIntfInAclConfig(config(), Orlix::IntfId{"Ethernet9"}, false);
   helper->updateIntfInAclConfig(config(), Orlix::IntfId{"Ethernet9"}, true);
   EXPECT_EQ(told(capture), together({intfTraces("Ethernet9"), intfTraces("Ethernet9", true)}));
}

TEST_F(LifecycleInterface, tracesWhatIsPassedOn) {
   for (const bool removal : {false, true}) {
      prepare(removal);
      program();
      const TraceCapture capture;
      change(removal);
      EXPECT_EQ(told(capture),
                together({entryTraces(removal), keyTraces(), intfTraces("Ethernet2", removal),
                          its(removal, {"5 Programmed Policy : true"}),
                          by("updateRulesClientConfig",
                             {"8",
                              "5 Acl Config Key : p-ipv4, Event : 3, Current Interface : Ethernet2",
                              "5 Updating clientConfig()->currIntf() with Ethernet2",
                              "5 Rules Client Updated : true"})}));
      remove();
   }
}

TEST_F(LifecycleInterface, tracesWhatIsNot) {
   for (const bool removal : {false, true}) {
      prepare(removal);
      create();
      const TraceCapture capture;
      change(removal);
      EXPECT_EQ(told(capture),
                together({entryTraces(removal), keyTraces(), intfTraces("Ethernet2", removal),
                          its(removal, {"5 Programmed Policy : false",
                                        "0 Error: " + notCommitted(removal)})}));
      remove();
   }
}

// The message is traced although the text of the rules client is returned.
TEST_F(LifecycleInterface, onlyRemovalTracesTheIndex) {
   for (const bool removal : {false, true}) {
      prepare(removal);
      create();
      commit();
      fail("a");
      fail("b");
      const TraceCapture capture;
      EXPECT_EQ(change(removal), "b");
      EXPECT_EQ(told(capture),
                together({entryTraces(removal), keyTraces(), intfTraces("Ethernet2", removal),
                          its(removal,
                              {"5 Programmed Policy : false", "0 Error: " + notCommitted(removal)}),
                          its(removal, removal ? Lines{"5 currentIndex : 2"} : Lines{})}));
      remove();
   }
}

TEST_F(LifecycleInterface, tracesThatThereAreNoRules) {
   helper->rules.clear();
   create();
   for (const bool removal : {false, true}) {
      const TraceCapture capture;
      change(removal);
      EXPECT_EQ(told(capture),
                together({entryTraces(removal), keyTraces(),
                          its(removal, {"5 Error: No rules configured in policy  p-ipv4"})}));
   }
}

TEST_F(LifecycleInterface, tracesTheOtherFamilyTwice) {
   create(ipv6);
   const TraceCapture capture;
   addIntf("", ipv6);
   EXPECT_EQ(told(capture)[1], "9 addIntfToPolicy: Policy : p/s, Match Type : 1, Interface : , "
                               "Logical Interface : Port-Channel9, VRF Name : red, Match Type : 1");
}

} // namespace
} // namespace OruPostcardTelemetry
