// The software TCAM behind a conversation: every event, what fits and what does not, the answers
// and their order.
#include "../ClientFixture.h"

namespace {

using namespace OruPostcardTelemetry;
using Postcard::Packets::parsePacket;
using Postcard::RulesClient::SoftwareTcam;
using RulesClientTest::AclRecords;
using RulesClientTest::Texts;

const Postcard::Packets::Packet tcpPacket = parsePacket("tcp 1.2.3.4:1 > 5.6.7.8:2 dscp=10");

using Client = RulesClientTest::ClientFixture<Postcard::RulesClient::Conversation>;

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
   EXPECT_EQ(line_->requests(), 4U);
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
   EXPECT_EQ(line_->requests(), 0U);
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
   make(0);
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
   line_.reset();
   runQueue();
   EXPECT_EQ(status_->kickResponse(), 0U);
   post(policyCreate, AclRecords{"b-ipv4"}.rules(1).data()); // nobody listens any more
   EXPECT_EQ(queue_.size(), 0U);
}

// An agent posts the next request when it hears of the answer.
TEST_F(Client, aRequestInsideAnAnswer) {
   const auto next = status_->publisher()->subscribe([&](const Pello::Change& change) {
      if (change.attribute == PostcardTelemetryRulesClientSmStatus::kickResponseId &&
          config_->kickRequest() < 5) {
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
      if (change.attribute == PostcardTelemetryRulesClientSmStatus::kickResponseId) {
         line_.reset();
      }
   });
   makeDeferring();
   post(policyCreate, AclRecords{"a-ipv4"}.rules(1).data());
   runQueue();
   EXPECT_EQ(line_, nullptr);
   EXPECT_EQ(status_->kickResponse(), 1U);
}

} // namespace
