// `updateRulesClientConfig`: what is written, in which order, and what an observer sees meanwhile.
#include "support/LifecycleRecords.h"

namespace OruPostcardTelemetry {
namespace {

using TestSupport::by;
using TestSupport::Lines;
using TestSupport::told;
using TestSupport::TraceCapture;

class LifecycleRequest : public TestSupport::Lifecycle {
 protected:
   // Two configurations, of the keys p-ipv4 and p-ipv6.
   LifecycleRequest() {
      create(ipv4);
      create(ipv6);
      log.take();
   }
   void post(PostcardTelemetryRulesClientSmEvent event, std::string_view key,
             std::string_view intf = {}) {
      helper->updateRulesClientConfig(event, config(key), Orlix::IntfId{intf});
   }
   // Everything that a reader of the request sees.
   std::string seen() const {
      const auto about = request->aclConfig();
      return std::string{stringValue(request->event())} + " " +
             (about == nullptr ? "nothing" : about->aclConfigKey().str()) + " '" +
             request->currIntf().stringValue().str() + "' " +
             std::to_string(request->kickRequest()) +
             (about != nullptr && about->rulesClientUpdated() ? " updated" : "");
   }
};

TEST_F(LifecycleRequest, creationLeavesTheNewRecordAlone) {
   EXPECT_EQ(seen(), "policyCreate nothing '' 0");
}

TEST_F(LifecycleRequest, settingWhatIsSetIsSilent) {
   commit();
   log.take();
   request->eventIs(policyCreate);
   request->aclConfigIs(config());
   request->currIntfIs({});
   request->kickRequestIs(1);
   EXPECT_EQ(request->kickRequestInc(0), 1U);
   EXPECT_EQ(log.take(), Lines{});
   request->aclConfigIs(nullptr);
   request->aclConfigIs(nullptr);
   EXPECT_EQ(log.take(), (Lines{"aclConfig p-ipv4"}));
}

TEST_F(LifecycleRequest, everyFieldIsWrittenInItsOrder) {
   post(policyDelete, "p-ipv4", "Ethernet1");
   EXPECT_EQ(log.take(),
             (Lines{"event policyCreate", "aclConfig nothing", "currIntf ", "kickRequest 0"}));
   post(policyIntfUpdate, "p-ipv6", "Ethernet2");
   EXPECT_EQ(log.take(), (Lines{"event policyDelete", "aclConfig p-ipv4", "currIntf Ethernet1",
                                "kickRequest 1"}));
   EXPECT_EQ(seen(), "policyIntfUpdate p-ipv6 'Ethernet2' 2 updated");
}

TEST_F(LifecycleRequest, anObserverOfTheCounterSeesEverythingNew) {
   Lines lines;
   const auto subscription = request->publisher()->subscribe([&](const Pello::Change& change) {
      lines.push_back(TestSupport::nameOf(change, *request) + ": " + seen());
   });
   post(policyIntfUpdate, "p-ipv6", "Ethernet2");
   EXPECT_EQ(lines, (Lines{"event: policyIntfUpdate nothing '' 0",
                           "aclConfig: policyIntfUpdate p-ipv6 '' 0",
                           "currIntf: policyIntfUpdate p-ipv6 'Ethernet2' 0",
                           "kickRequest: policyIntfUpdate p-ipv6 'Ethernet2' 1 updated"}));
}

// Every operation that posts does so for an observer, too.
TEST_F(LifecycleRequest, soItIsForEveryOperation) {
   Lines lines;
   const auto subscription = request->publisher()->subscribe([&](const Pello::Change& change) {
      if (change.attribute == PostcardTelemetryRulesClientSmConfig::kickRequestId) {
         lines.push_back(seen() + (config("p-ipv4") == request->aclConfig() ? " kept" : " gone"));
      }
   });
   commit();
   succeed();
   addIntf("Ethernet2");
   removeIntf("Ethernet2");
   recreate();
   commit();
   remove();
   EXPECT_EQ(lines, (Lines{"policyCreate p-ipv4 '' 1 updated kept",
                           "policyIntfUpdate p-ipv4 'Ethernet2' 2 updated kept",
                           "policyIntfUpdate p-ipv4 'Ethernet2' 3 updated kept",
                           "policyUpdate p-ipv4 'Ethernet2' 4 updated kept",
                           "policyDelete p-ipv4 'Ethernet2' 5 updated kept"}));
}

TEST_F(LifecycleRequest, withoutAnInterfaceTheEarlierOneStays) {
   post(policyIntfUpdate, "p-ipv4", "Ethernet2");
   for (const auto event : {policyCreate, policyUpdate, policyDelete}) {
      log.take();
      post(event, "p-ipv6");
      EXPECT_EQ(request->currIntf(), Orlix::IntfId{"Ethernet2"});
      EXPECT_EQ(std::ranges::count(log.take(), "currIntf "), 0);
   }
   EXPECT_EQ(seen(), "policyDelete p-ipv6 'Ethernet2' 4 updated");
}

TEST_F(LifecycleRequest, anUnansweredRequestIsReplaced) {
   post(policyCreate, "p-ipv4", "Ethernet1");
   post(policyIntfUpdate, "p-ipv6", "Ethernet2");
   EXPECT_EQ(seen(), "policyIntfUpdate p-ipv6 'Ethernet2' 2 updated");
}

TEST_F(LifecycleRequest, theSameAgainIsOnlyCounted) {
   post(policyIntfUpdate, "p-ipv4", "Ethernet2");
   log.take();
   post(policyIntfUpdate, "p-ipv4", "Ethernet2");
   EXPECT_EQ(log.take(), (Lines{"kickRequest 1"}));
}

TEST_F(LifecycleRequest, theCounterWraps) {
   request->kickRequestIs(4294967295U);
   log.take();
   commit();
   EXPECT_EQ(request->kickRequest(), 0U);
   EXPECT_EQ(log.take().back(), "kickRequest 4294967295");
}

TEST_F(LifecycleRequest, nothingElseIsWritten) {
   post(policyIntfUpdate, "p-ipv4", "Ethernet2");
   EXPECT_FALSE(config()->programmedPolicy());
   EXPECT_EQ(history(*config()), (Lines{"next 0"}));
   EXPECT_EQ(interfaces(*config()), (Lines{"Ethernet1"}));
   EXPECT_FALSE(config("p-ipv6")->rulesClientUpdated());
}

TEST_F(LifecycleRequest, theReplacedConfigurationIsReadableOnceMore) {
   const auto living = [] { return PostcardTelemetryAclConfig::memAllocationTracker_.live(); };
   commit(ipv4);
   remove(ipv4); // now the record alone holds it
   const U64 before = living();
   std::string replaced;
   U64 meanwhile = 0;
   const auto subscription = request->publisher()->subscribe([&](const Pello::Change& change) {
      using Reference = Pello::Ptr<const PostcardTelemetryAclConfig>;
      if (const auto* old = change.oldValue.as<Reference>()) {
         replaced = (*old)->aclConfigKey().str() + " " + interfaces(**old).front() + " " +
                    std::to_string((*old)->ruleByIndexs());
         meanwhile = living();
      }
   });
   commit(ipv6);
   EXPECT_EQ(replaced, "p-ipv4 Ethernet1 1");
   EXPECT_EQ(meanwhile, before);
   EXPECT_EQ(living(), before - 1);
}

TEST_F(LifecycleRequest, tracesWithAndWithoutAnInterface) {
   for (const auto event : {policyCreate, policyUpdate, policyDelete, policyIntfUpdate}) {
      const TraceCapture capture;
      post(event, "p-ipv4");
      EXPECT_EQ(told(capture), requestTraces(event));
   }
   const TraceCapture capture;
   post(policyUpdate, "p-ipv6", "Ethernet2");
   EXPECT_EQ(told(capture),
             by("updateRulesClientConfig",
                {"8", "5 Acl Config Key : p-ipv6, Event : 1, Current Interface : Ethernet2",
                 "5 Updating clientConfig()->currIntf() with Ethernet2",
                 "5 Rules Client Updated : true"}));
}

// A rules client that answers while the counter is published.
TEST_F(LifecycleRequest, anAnswerMayComeAtOnce) {
   Lines returned;
   const auto subscription = request->publisher()->subscribe([&](const Pello::Change& change) {
      if (change.attribute == PostcardTelemetryRulesClientSmConfig::kickRequestId) {
         returned.push_back((request->event() == policyDelete ? fail("busy") : succeed()).str());
      }
   });
   EXPECT_EQ(commit(), "");
   EXPECT_TRUE(config()->programmedPolicy());
   EXPECT_EQ(addIntf("Ethernet2"), "");
   EXPECT_EQ(history(*config()), (Lines{"0 ", "1 ", "next 2"}));
   const auto going = config();
   EXPECT_EQ(remove(), "");
   EXPECT_EQ(history(*going), (Lines{"0 ", "1 ", "2 busy", "next 3"}));
   EXPECT_EQ(returned, (Lines{"", "", "busy"}));
}

} // namespace
} // namespace OruPostcardTelemetry
