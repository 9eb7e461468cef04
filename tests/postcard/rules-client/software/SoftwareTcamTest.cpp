// The rules client: every event, what fits and what does not, the answers and their order, and
// everything that can be made to go wrong.
#include "postcard/rules-client/software/SoftwareTcam.h"

#include "support/AclRecords.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <memory>

namespace {

using namespace OruPostcardTelemetry;
using Postcard::Packets::parsePacket;
using Postcard::RulesClient::InjectedFailure;
using Postcard::RulesClient::SoftwareTcam;
using RulesClientTest::AclRecords;
using Texts = std::vector<std::string>;

const Postcard::Packets::Packet tcpPacket = parsePacket("tcp 1.2.3.4:1 > 5.6.7.8:2 dscp=10");

// A client with its records, and everything that is published of the answers.
class Client : public testing::Test {
 protected:
   Client() { make({.capacity = 10, .later = {}}); }

   void make(SoftwareTcam::Options options) {
      tcam_.reset(); // the records go on
      tcam_ = std::make_unique<SoftwareTcam>(config_, status_, std::move(options));
   }
   void makeDeferring(std::size_t capacity = 10) {
      make({.capacity = capacity,
            .later = [this](std::function<void()> work) { queue_.push_back(std::move(work)); }});
   }
   void runQueue() {
      for (auto& work : std::exchange(queue_, {})) {
         work();
      }
   }

   // Posts a request as a helper does.
   void post(PostcardTelemetryRulesClientSmEvent event,
             const Pello::Ptr<const PostcardTelemetryAclConfig>& acl) {
      config_->eventIs(event);
      config_->aclConfigIs(acl);
      config_->kickRequestInc(1);
   }
   // The same, and returns the answer's text.
   std::string ask(PostcardTelemetryRulesClientSmEvent event, const AclRecords& acl) {
      post(event, acl.data());
      EXPECT_EQ(status_->kickResponse(), config_->kickRequest());
      EXPECT_EQ(status_->statusType() == statusSuccess, status_->status().empty());
      return status_->status().str();
   }
   std::string create(std::string_view key, std::size_t rules) {
      return ask(policyCreate, AclRecords{key}.rules(rules));
   }
   std::string update(std::string_view key, std::size_t rules) {
      return ask(policyUpdate, AclRecords{key}.rules(rules));
   }
   std::size_t entries(std::string_view key) const {
      const auto* acl = tcam_->acl(Pello::String{key});
      return acl == nullptr ? 0 : acl->entries().size();
   }

   // From now on, everything that is published of the status record, in order.
   const Texts& watch() {
      watching_ = status_->publisher()->subscribe([this](const Pello::Change& change) {
         seen_.push_back(change.attribute == 130
                               ? fmt::format("status '{}'", status_->status().view())
                         : change.attribute == 131
                               ? fmt::format("type {}", stringValue(status_->statusType()))
                               : fmt::format("response {}", status_->kickResponse()));
      });
      return seen_;
   }

   Pello::Ptr<PostcardTelemetryRulesClientSmConfig> config_{
         postcardTelemetryRulesClientSmConfigFactory()};
   Pello::Ptr<PostcardTelemetryRulesClientSmStatus> status_{
         postcardTelemetryRulesClientSmStatusFactory()};
   std::unique_ptr<SoftwareTcam> tcam_;
   std::vector<std::function<void()>> queue_;

 private:
   Texts seen_;
   Pello::Publisher::Subscription watching_;
};

TEST_F(Client, createsUpdatesAndDeletes) {
   EXPECT_EQ(create("a-ipv4", 3), "");
   EXPECT_EQ(entries("a-ipv4"), 3U);
   EXPECT_EQ(update("a-ipv4", 5), "");
   EXPECT_EQ(entries("a-ipv4"), 5U);
   EXPECT_EQ(create("b-ipv4", 2), "");
   EXPECT_EQ(tcam_->used(), 7U);
   EXPECT_EQ(tcam_->available(), 3U);
   EXPECT_EQ(ask(policyDelete, AclRecords{"a-ipv4"}), "");
   EXPECT_EQ(tcam_->acl(Pello::String{"a-ipv4"}), nullptr);
   EXPECT_EQ(tcam_->used(), 2U);
   EXPECT_EQ(tcam_->requests(), 4U);
}

TEST_F(Client, anAclWithoutRulesIsHeldToo) {
   EXPECT_EQ(create("a-ipv4", 0), "");
   EXPECT_NE(tcam_->acl(Pello::String{"a-ipv4"}), nullptr);
   EXPECT_EQ(ask(policyDelete, AclRecords{"a-ipv4"}), "");
}

TEST_F(Client, onlyTheCounterIsARequest) {
   config_->eventIs(policyUpdate);
   config_->aclConfigIs(AclRecords{"a-ipv4"}.rules(1).data());
   config_->currIntfIs(Orlix::IntfId{"Ethernet1"});
   EXPECT_EQ(tcam_->requests(), 0U);
   EXPECT_EQ(tcam_->used(), 0U);
   EXPECT_EQ(status_->kickResponse(), 0U);
}

TEST_F(Client, capacityEdges) {
   EXPECT_EQ(create("a-ipv4", 10), ""); // exactly full
   EXPECT_EQ(create("b-ipv4", 1), "full: b-ipv4 needs 1 entries, 0 of 10 are free");
   EXPECT_EQ(create("b-ipv4", 0), "");
   EXPECT_EQ(update("a-ipv4", 9), "");
   EXPECT_EQ(update("b-ipv4", 2), "full: b-ipv4 needs 2 entries, 1 of 10 are free");
   EXPECT_EQ(update("b-ipv4", 1), "");
   EXPECT_EQ(create("c-ipv4", 11), "full: c-ipv4 needs 11 entries, 0 of 10 are free");
   make({.capacity = 0, .later = {}});
   EXPECT_EQ(create("a-ipv4", 0), "");
   EXPECT_EQ(create("b-ipv4", 1), "full: b-ipv4 needs 1 entries, 0 of 0 are free");
}

TEST_F(Client, aNewVersionMayUseTheRoomOfTheOld) {
   create("a-ipv4", 6);
   create("b-ipv4", 2);
   EXPECT_EQ(update("a-ipv4", 8), "");
   EXPECT_EQ(update("a-ipv4", 9), "full: a-ipv4 needs 9 entries, 8 of 10 are free");
}

TEST_F(Client, anUpdateThatDoesNotFitLeavesTheOldVersionInForce) {
   AclRecords old{"a-ipv4"};
   old.rule()->ruleActionIs()->actionDelAll();
   old.intf("Ethernet1");
   ask(policyCreate, old);
   EXPECT_EQ(tcam_->classify(tcpPacket).at(0).sampled, false);
   EXPECT_EQ(ask(policyUpdate, AclRecords{"a-ipv4"}.rules(11).intf("Ethernet2")),
             "full: a-ipv4 needs 11 entries, 10 of 10 are free");
   const auto* held = tcam_->acl(Pello::String{"a-ipv4"});
   ASSERT_EQ(held->entries().size(), 1U);
   EXPECT_EQ(held->entries()[0].hits, 1U);
   EXPECT_TRUE(held->attachedTo(Orlix::IntfId{"Ethernet1"}));
   EXPECT_FALSE(held->attachedTo(Orlix::IntfId{"Ethernet2"}));
   EXPECT_EQ(tcam_->classify(tcpPacket).at(0).sampled, false);
}

TEST_F(Client, anInvalidUpdateLeavesTheOldVersionInForceToo) {
   create("a-ipv4", 2);
   AclRecords wrong{"a-ipv4"};
   wrong.rules(3).rule()->ruleFilter()->sourceIs(Orlix::IpGenPrefix{"2001:db8::/32"});
   EXPECT_EQ(ask(policyUpdate, wrong),
             "invalid: rule 'r3' of a-ipv4 has the source prefix 2001:db8::/32, which is not IPv4");
   EXPECT_EQ(entries("a-ipv4"), 2U);
   // What will never be possible is not called full.
   EXPECT_EQ(ask(policyUpdate, wrong.rules(20)).substr(0, 9), "invalid: ");
}

TEST_F(Client, aCreationOfWhatIsHeldReplacesAndAnUpdateOfWhatIsNotCreates) {
   create("a-ipv4", 2);
   EXPECT_EQ(create("a-ipv4", 3), "");
   EXPECT_EQ(entries("a-ipv4"), 3U);
   EXPECT_EQ(update("b-ipv4", 4), "");
   EXPECT_EQ(entries("b-ipv4"), 4U);
}

TEST_F(Client, invalidRequests) {
   config_->kickRequestInc(1);
   EXPECT_EQ(status_->status(), "invalid: policyCreate without an ACL");
   post(policyDelete, nullptr);
   EXPECT_EQ(status_->status(), "invalid: policyDelete without an ACL");
   EXPECT_EQ(ask(policyDelete, AclRecords{"a-ipv4"}),
             "invalid: a-ipv4 cannot be deleted: it is not programmed");
   EXPECT_EQ(ask(policyIntfUpdate, AclRecords{"a-ipv4"}),
             "invalid: the interfaces of a-ipv4 cannot be updated: it is not programmed");
   EXPECT_EQ(ask(static_cast<PostcardTelemetryRulesClientSmEvent>(4), AclRecords{"a-ipv4"}),
             "invalid: unknown event 4");
   EXPECT_EQ(status_->statusType(), statusFailure);
   EXPECT_EQ(tcam_->acls().size(), 0U);
}

TEST_F(Client, interfaceUpdatesTakeTheInterfacesOfTheAclAndNothingElse) {
   AclRecords acl{"a-ipv4"};
   acl.rules(1).intf("Ethernet1").intf("Ethernet2");
   ask(policyCreate, acl);
   tcam_->classify(tcpPacket);
   acl.data()->policyIntfDel(Orlix::IntfId{"Ethernet1"});
   acl.rules(5).intf("Ethernet3");
   config_->currIntfIs(Orlix::IntfId{"Ethernet2"}); // says which one, not whether it is there
   EXPECT_EQ(ask(policyIntfUpdate, acl), "");
   const auto* held = tcam_->acl(Pello::String{"a-ipv4"});
   EXPECT_FALSE(held->attachedTo(Orlix::IntfId{"Ethernet1"}));
   EXPECT_TRUE(held->attachedTo(Orlix::IntfId{"Ethernet2"}));
   EXPECT_TRUE(held->attachedTo(Orlix::IntfId{"Ethernet3"}));
   EXPECT_EQ(held->entries().size(), 1U);
   EXPECT_EQ(held->entries()[0].hits, 1U);
}

TEST_F(Client, classifiesInTheAclsThatTheInterfaceIsAttachedTo) {
   ask(policyCreate, AclRecords{"b-ipv4"}.rules(2).intf("Ethernet1"));
   ask(policyCreate, AclRecords{"a-ipv4"}.rules(1).intf("Ethernet1").intf("Ethernet2"));
   ask(policyCreate, AclRecords{"a-ipv6", Acl::AclType::ipv6}.rules(1).intf("Ethernet1"));
   Postcard::Packets::Packet packet = tcpPacket;
   const auto acls = [&](const char* intf) {
      packet.intf = Orlix::IntfId{intf};
      Texts keys;
      for (const SoftwareTcam::Verdict& verdict : tcam_->classify(packet)) {
         keys.push_back(verdict.acl.str());
      }
      return keys;
   };
   EXPECT_EQ(acls("Ethernet1"), (Texts{"a-ipv4", "b-ipv4"}));
   EXPECT_EQ(acls("Ethernet2"), Texts{"a-ipv4"});
   EXPECT_EQ(acls("Ethernet3"), Texts{});
   EXPECT_EQ(acls(""), (Texts{"a-ipv4", "b-ipv4"}));
   const SoftwareTcam::Verdict expected{Pello::String{"a-ipv4"}, 0, Pello::String{"r0"}, true, 10};
   EXPECT_EQ(tcam_->classify(tcpPacket).at(0), expected);
}

TEST_F(Client, theAclIsCopiedAtTheRequest) {
   makeDeferring();
   AclRecords acl{"a-ipv4"};
   acl.rules(2);
   post(policyCreate, acl.data());
   acl.data()->ruleByIndexDelAll(); // before the answer, and the record is used again
   config_->aclConfigIs(nullptr);
   runQueue();
   EXPECT_EQ(status_->status(), "");
   EXPECT_EQ(entries("a-ipv4"), 2U);
}

TEST_F(Client, theCounterIsTheLastOfAnAnswer) {
   const Texts& seen = watch();
   create("a-ipv4", 11);
   create("a-ipv4", 1);
   EXPECT_EQ(seen, (Texts{"status 'full: a-ipv4 needs 11 entries, 10 of 10 are free'",
                          "type statusFailure", "response 1", "status ''", "type statusSuccess",
                          "response 2"}));
}

TEST_F(Client, theCounterWraps) {
   config_->kickRequestIs(4294967294U);
   create("a-ipv4", 1);
   EXPECT_EQ(status_->kickResponse(), 4294967295U);
   create("a-ipv4", 1);
   EXPECT_EQ(status_->kickResponse(), 0U);
}

TEST_F(Client, answersWaitForTheOwnersLoop) {
   makeDeferring();
   post(policyCreate, AclRecords{"a-ipv4"}.rules(1).data());
   EXPECT_EQ(status_->kickResponse(), 0U);
   EXPECT_EQ(entries("a-ipv4"), 1U);
   runQueue();
   EXPECT_EQ(status_->kickResponse(), 1U);
   post(policyUpdate, AclRecords{"a-ipv4"}.rules(11).data());
   post(policyUpdate, AclRecords{"a-ipv4"}.rules(2).data());
   const Texts& seen = watch();
   runQueue();
   EXPECT_EQ(seen.at(2), "response 2");
   EXPECT_EQ(seen.back(), "response 3");
}

TEST_F(Client, anAnswerUnderWayIsForgottenWithTheClient) {
   makeDeferring();
   post(policyCreate, AclRecords{"a-ipv4"}.rules(1).data());
   tcam_.reset();
   runQueue();
   EXPECT_EQ(status_->kickResponse(), 0U);
   post(policyCreate, AclRecords{"b-ipv4"}.rules(1).data()); // nobody listens any more
   EXPECT_EQ(queue_.size(), 0U);
}

// An agent posts the next request when it hears of the answer.
TEST_F(Client, aRequestInsideAnAnswer) {
   const auto next = status_->publisher()->subscribe([&](const Pello::Change& change) {
      if (change.attribute == 132 && config_->kickRequest() < 5) {
         const auto key = "p" + std::to_string(config_->kickRequest());
         post(policyCreate, AclRecords{key}.rules(1).data());
      }
   });
   post(policyCreate, AclRecords{"p0"}.rules(1).data());
   EXPECT_EQ(tcam_->acls().size(), 5U);
   EXPECT_EQ(status_->kickResponse(), 5U);
}

TEST_F(Client, theOwnerMayDropTheClientInsideAnAnswer) {
   const auto drop = status_->publisher()->subscribe([&](const Pello::Change& change) {
      if (change.attribute == 132) {
         tcam_.reset();
      }
   });
   makeDeferring();
   post(policyCreate, AclRecords{"a-ipv4"}.rules(1).data());
   runQueue();
   EXPECT_EQ(tcam_, nullptr);
   EXPECT_EQ(status_->kickResponse(), 1U);
}

// ---- What goes wrong on purpose ----

TEST_F(Client, refusesTheNextRequests) {
   tcam_->inject({InjectedFailure::refuse, "no such luck"}, 2);
   EXPECT_EQ(create("a-ipv4", 1), "no such luck");
   EXPECT_EQ(status_->statusType(), statusFailure);
   EXPECT_EQ(create("a-ipv4", 1), "no such luck");
   EXPECT_EQ(entries("a-ipv4"), 0U);
   EXPECT_EQ(create("a-ipv4", 1), "");
   EXPECT_EQ(entries("a-ipv4"), 1U);
}

TEST_F(Client, answersLateWhenToldTo) {
   tcam_->inject({InjectedFailure::late, ""}, 2);
   post(policyCreate, AclRecords{"a-ipv4"}.rules(1).data());
   post(policyCreate, AclRecords{"b-ipv4"}.rules(11).data());
   EXPECT_EQ(status_->kickResponse(), 0U);
   EXPECT_EQ(tcam_->heldAnswers(), 2U);
   EXPECT_EQ(entries("a-ipv4"), 1U); // done, only not told
   EXPECT_EQ(create("c-ipv4", 1), "");
   const Texts& seen = watch();
   tcam_->releaseAnswers();
   EXPECT_EQ(tcam_->heldAnswers(), 0U);
   EXPECT_EQ(seen, (Texts{"response 1", "status 'full: b-ipv4 needs 11 entries, 9 of 10 are free'",
                          "type statusFailure", "response 2"}));
}

TEST_F(Client, neverAnswers) {
   tcam_->inject({InjectedFailure::never, ""});
   post(policyCreate, AclRecords{"a-ipv4"}.rules(1).data());
   EXPECT_EQ(status_->kickResponse(), 0U);
   EXPECT_EQ(entries("a-ipv4"), 0U);
   EXPECT_EQ(tcam_->requests(), 1U);
   EXPECT_EQ(create("a-ipv4", 1), "");
   EXPECT_EQ(status_->kickResponse(), 2U);
}

TEST_F(Client, answersTwice) {
   tcam_->inject({InjectedFailure::twice, ""});
   const Texts& seen = watch();
   create("a-ipv4", 1);
   EXPECT_EQ(seen, (Texts{"response 1", "response 0", "response 1"}));
}

TEST_F(Client, theSecondAnswerMayComeWhenTheNextRequestIsUnderWay) {
   makeDeferring();
   tcam_->inject({InjectedFailure::twice, ""});
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

TEST_F(Client, answersARequestThatIsGone) {
   create("a-ipv4", 1);
   tcam_->inject({InjectedFailure::gone, "from another time"});
   const Texts& seen = watch();
   EXPECT_EQ(create("b-ipv4", 1), "");
   EXPECT_EQ(seen, (Texts{"status 'from another time'", "type statusFailure", "response 0",
                          "response 1", "status ''", "type statusSuccess", "response 2"}));
   EXPECT_EQ(entries("b-ipv4"), 1U);
}

TEST_F(Client, failuresComeInTheOrderOfTheirInjection) {
   tcam_->inject({InjectedFailure::never, ""});
   tcam_->inject({InjectedFailure::refuse, "x"});
   tcam_->inject({InjectedFailure::late, ""});
   for (int i = 0; i < 3; ++i) {
      post(policyCreate, AclRecords{"a-ipv4"}.rules(1).data());
   }
   EXPECT_EQ(status_->kickResponse(), 2U);
   EXPECT_EQ(status_->status(), "x");
   tcam_->releaseAnswers();
   EXPECT_EQ(status_->kickResponse(), 3U);
}

} // namespace
