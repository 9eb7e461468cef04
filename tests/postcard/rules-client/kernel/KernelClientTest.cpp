// The rules client of the kernel on interfaces of the test's own: requests, interfaces that come
// and go, several ACLs, replacement while packets flow, and what is refused.
#include "postcard/rules-client/kernel/KernelClient.h"

#include "ComparedAcl.h"
#include "FixedFrames.h"
#include "Namespaces.h"
#include "postcard/rules-client/Conversation.h"
#include "postcard/rules-client/kernel/SampleReader.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace {

using namespace RulesClientTest;
using namespace OruPostcardTelemetry;
using Orlix::AddressFamily;
using Postcard::RulesClient::Attachment;
using Postcard::RulesClient::ClientOptions;
using Postcard::RulesClient::Conversation;
using Postcard::RulesClient::KernelClient;

const Bytes frame4 = joined({macs, type4, head4(20), tcp443});
const Bytes frame6 = joined({macs, type6, head6(6, 20), tcp443});

class Client : public KernelTest {
 protected:
   void SetUp() override {
      KernelTest::SetUp();
      if (IsSkipped()) {
         return;
      }
      if (!net_.missing().empty()) {
         GTEST_SKIP() << net_.missing();
      }
      Namespace::pair("a");
      Namespace::pair("b");
      make();
   }

   void make() {
      line_.reset();
      client_.reset();
      ClientOptions options;
      options.say = [this](const std::string& line) { said_.push_back(line); };
      client_ = std::make_shared<KernelClient>(options);
      line_ = std::make_unique<Conversation>(config_, status_, client_);
   }

   std::string ask(PostcardTelemetryRulesClientSmEvent event, const AclRecords& acl) {
      config_->eventIs(event);
      config_->aclConfigIs(acl.data());
      config_->kickRequestInc(1);
      EXPECT_EQ(status_->kickResponse(), config_->kickRequest());
      EXPECT_EQ(status_->statusType() == statusSuccess, status_->status().empty());
      return status_->status().str();
   }
   std::string create(const AclRecords& acl) { return ask(policyCreate, acl); }
   std::string create(std::string_view key, std::string_view interface) {
      return create(AclRecords{key}.rules(1).intf(interface));
   }

   // Sends on the other end of the pair and waits until the frame has come through.
   void send(const std::string& interface, const Bytes& frame) {
      const PacketSocket to{interface};
      PacketSocket{interface + "p"}.send(frame);
      const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds{5};
      while (to.received().empty()) {
         ASSERT_LT(std::chrono::steady_clock::now(), deadline);
         std::this_thread::yield();
      }
   }
   U64 packets(std::string_view key, std::size_t rule = 0) const {
      return client_->acls().at(Pello::String{key}).program->counter(rule).packets;
   }

   Namespace net_;
   Pello::Ptr<PostcardTelemetryRulesClientSmConfig> config_{
         postcardTelemetryRulesClientSmConfigFactory()};
   Pello::Ptr<PostcardTelemetryRulesClientSmStatus> status_{
         postcardTelemetryRulesClientSmStatusFactory()};
   std::vector<std::string> said_;
   std::shared_ptr<KernelClient> client_;
   std::unique_ptr<Conversation> line_;
};

TEST_F(Client, createsUpdatesAndDeletes) {
   EXPECT_EQ(create("p-ipv4", "a"), "");
   EXPECT_EQ(client_->attached("a"), Attachment::Mode::native);
   send("a", frame4);
   EXPECT_EQ(packets("p-ipv4"), 1U);
   EXPECT_EQ(ask(policyUpdate, AclRecords{"p-ipv4"}.rules(3).intf("a")), "");
   EXPECT_EQ(packets("p-ipv4"), 0U);
   send("a", frame4);
   send("a", frame6);
   EXPECT_EQ(packets("p-ipv4"), 1U);
   EXPECT_EQ(ask(policyDelete, AclRecords{"p-ipv4"}), "");
   EXPECT_EQ(client_->attached("a"), std::nullopt);
   EXPECT_TRUE(client_->acls().empty());
   send("a", frame4);
   EXPECT_EQ(said_, std::vector<std::string>{});
}

TEST_F(Client, whatIsNotProgrammedCannotBeChanged) {
   EXPECT_EQ(ask(policyDelete, AclRecords{"p-ipv4"}),
             "invalid: p-ipv4 cannot be deleted: it is not programmed");
   EXPECT_EQ(ask(policyIntfUpdate, AclRecords{"p-ipv4"}),
             "invalid: the interfaces of p-ipv4 cannot be updated: it is not programmed");
}

TEST_F(Client, anUnknownActionIsInvalidAndTheOldVersionStays) {
   create("p-ipv4", "a");
   AclRecords policed{"p-ipv4"};
   policed.intf("a").rule()->ruleAction()->actionIs(RuleAction::policeAction);
   EXPECT_EQ(create(policed),
             "invalid: rule 'r0' of p-ipv4 asks for policing, which is not supported");
   send("a", frame4);
   EXPECT_EQ(packets("p-ipv4"), 1U);
}

// ---- Interfaces ----

TEST_F(Client, interfacesChangeAlone) {
   create("p-ipv4", "a");
   send("a", frame4);
   EXPECT_EQ(ask(policyIntfUpdate, AclRecords{"p-ipv4"}.intf("b")), "");
   EXPECT_EQ(client_->attached("a"), std::nullopt);
   send("a", frame4);
   send("b", frame4);
   EXPECT_EQ(packets("p-ipv4"), 2U); // counters go on
   EXPECT_EQ(ask(policyIntfUpdate, AclRecords{"p-ipv4"}.intf("a").intf("b")), "");
   send("a", frame4);
   send("b", frame4);
   EXPECT_EQ(packets("p-ipv4"), 4U);
   EXPECT_EQ(ask(policyIntfUpdate, AclRecords{"p-ipv4"}), "");
   send("a", frame4);
   EXPECT_EQ(packets("p-ipv4"), 4U);
}

TEST_F(Client, aMissingInterfaceIsWaitedFor) {
   EXPECT_EQ(create(AclRecords{"p-ipv4"}.rules(1).intf("c").intf("a").intf("d")), "");
   EXPECT_EQ(said_, std::vector<std::string>{"waiting for interfaces: c, d"});
   EXPECT_EQ(client_->waiting(), (std::vector<std::string>{"c", "d"}));
   Namespace::pair("c");
   const auto watched = client_->watched();
   ASSERT_EQ(watched.size(), 1U);
   watched[0].readable();
   EXPECT_EQ(said_.back(), "attached to interface c");
   EXPECT_EQ(client_->waiting(), std::vector<std::string>{"d"});
   send("c", frame4);
   send("a", frame4);
   EXPECT_EQ(packets("p-ipv4"), 2U);
}

TEST_F(Client, anInterfaceMayGoAndComeAgain) {
   create("p-ipv4", "a");
   const auto watched = client_->watched();
   Namespace::command("link del dev a");
   watched[0].readable();
   EXPECT_EQ(client_->waiting(), std::vector<std::string>{"a"});
   Namespace::pair("a");
   watched[0].readable();
   send("a", frame4);
   EXPECT_EQ(packets("p-ipv4"), 1U);
}

// The same index, so only the kernel's link tells that this is another interface.
TEST_F(Client, anInterfaceMayComeAgainUnderItsNumber) {
   create("p-ipv4", "a");
   const U32 index = Postcard::RulesClient::interfaceIndex("a");
   Namespace::command("link del dev a");
   Namespace::command(fmt::format("link add name a index {} type veth peer name ap", index));
   for (const char* name : {"a", "ap"}) {
      Namespace::command(fmt::format("link set dev {} addrgenmode none up", name));
   }
   client_->watched()[0].readable();
   send("a", frame4);
   EXPECT_EQ(packets("p-ipv4"), 1U);
}

TEST_F(Client, anInterfaceMayBeRenamed) {
   create("p-ipv4", "a");
   const auto watched = client_->watched();
   Namespace::command("link set dev a down");
   Namespace::command("link set dev a name z");
   watched[0].readable();
   EXPECT_EQ(client_->attached("z"), std::nullopt);
   Namespace::command("link set dev z name a");
   Namespace::command("link set dev a up");
   watched[0].readable();
   send("a", frame4);
   EXPECT_EQ(packets("p-ipv4"), 1U);
}

TEST_F(Client, aForeignProgramIsRefusedByName) {
   const Dispatcher foreign;
   {
      const Attachment other{foreign.descriptor(), Postcard::RulesClient::interfaceIndex("a"), "a"};
      const std::string refusal = create(AclRecords{"p-ipv4"}.rules(1).intf("a").intf("b"));
      EXPECT_TRUE(refusal.starts_with("interface a has the XDP program 'postcardDispatc' (number "))
            << refusal;
      EXPECT_TRUE(
            refusal.ends_with("already; take that one off (ip link set dev a xdp off) or take "
                              "the interface out of the policy"))
            << refusal;
      EXPECT_EQ(client_->attached("b"), std::nullopt); // as a whole or not at all
      EXPECT_TRUE(client_->acls().empty());
   }
   EXPECT_EQ(create("p-ipv4", "a"), "");
}

// ---- Several ACLs ----

TEST_F(Client, allAclsOfAnInterfaceAreAskedInTheOrderOfTheirKeys) {
   const auto marking = [](std::string_view key, U8 dscp) {
      AclRecords acl{key};
      const auto action = acl.intf("a").rule()->ruleAction();
      action->actionIs(RuleAction::setDscpAction);
      action->dscpDataAndMaskIs({Orlix::DscpValue{dscp}, 0x3f});
      return acl;
   };
   create(marking("m-ipv4", 10));
   create(marking("z-ipv4", 20));
   create(marking("b-ipv4", 30));
   create(AclRecords{"b-ipv6", Acl::AclType::ipv6}.rules(1).intf("a"));
   const PacketSocket arrived{"a"};
   PacketSocket{"ap"}.send(frame4);
   std::vector<Bytes> frames;
   while (frames.empty()) {
      frames = arrived.received();
   }
   EXPECT_EQ(frames[0][15] >> 2, 20); // z comes last
   send("a", frame6);
   EXPECT_EQ(packets("b-ipv4"), 1U);
   EXPECT_EQ(packets("m-ipv4"), 1U);
   EXPECT_EQ(packets("z-ipv4"), 1U);
   EXPECT_EQ(packets("b-ipv6"), 1U);
   ask(policyDelete, AclRecords{"m-ipv4"});
   send("a", frame4);
   EXPECT_EQ(packets("b-ipv4"), 2U);
   EXPECT_EQ(packets("z-ipv4"), 2U);
}

TEST_F(Client, moreAclsThanAnInterfaceMayHaveAreFull) {
   for (int i = 0; i < 32; ++i) {
      EXPECT_EQ(create(fmt::format("p{:02}-ipv4", i), "a"), "");
   }
   EXPECT_EQ(create("q-ipv4", "a"),
             fmt::format("full: interface {} would have 33 ACLs of one family, 32 are the most",
                         Postcard::RulesClient::interfaceIndex("a")));
   EXPECT_FALSE(client_->acls().contains(Pello::String{"q-ipv4"}));
   EXPECT_EQ(create(AclRecords{"q-ipv6", Acl::AclType::ipv6}.rules(1).intf("a")), "");
   EXPECT_EQ(create("q-ipv4", "b"), "");
   EXPECT_TRUE(ask(policyIntfUpdate, AclRecords{"q-ipv4"}.intf("a").intf("b"))
                     .starts_with("full: interface "));
   send("a", frame4);
   send("b", frame4);
   EXPECT_EQ(packets("p00-ipv4"), 1U);
   EXPECT_EQ(packets("p31-ipv4"), 1U);
   EXPECT_EQ(packets("q-ipv4"), 1U);
}

// ---- Replacement under load ----

// Sends frames in small batches and takes each batch before the next, so that no queue overflows.
class Flood {
 public:
   Flood() : thread_{[this] { run(); }} {}
   ~Flood() { end(); }

   void end() {
      ended_ = true;
      if (thread_.joinable()) {
         thread_.join();
      }
   }
   U64 sent() const { return sent_; }
   U64 received() const { return received_; }

 private:
   void run() {
      while (!ended_) {
         for (int i = 0; i < 32; ++i) {
            from_.send(frame4);
            sent_ += 1;
         }
         const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds{5};
         while (received_ < sent_ && std::chrono::steady_clock::now() < deadline) {
            received_ += to_.received().size();
         }
      }
   }

   PacketSocket from_{"ap"};
   PacketSocket to_{"a"};
   std::atomic<bool> ended_ = false;
   std::atomic<U64> sent_ = 0;
   std::atomic<U64> received_ = 0;
   std::thread thread_; // last: it uses the others
};

// Each version's first rule takes every packet and samples it, so a packet that met no version
// would lack a sample.
TEST_F(Client, noPacketIsLostOrUnclassifiedWhileAclsAreReplaced) {
   create("p-ipv4", "a");
   U64 samples = 0;
   Postcard::RulesClient::SampleReader reader{client_->dispatcher().maps().samples,
                                              [&](const auto&) { samples += 1; }};
   Flood flood;
   for (int i = 0; i < 100; ++i) {
      EXPECT_EQ(ask(policyUpdate, AclRecords{"p-ipv4"}.rules(i % 2 == 0 ? 2 : 1).intf("a")), "");
      reader.read();
   }
   flood.end();
   reader.read();
   EXPECT_GT(flood.sent(), 1000U);
   EXPECT_EQ(flood.received(), flood.sent());
   EXPECT_EQ(samples, flood.sent());
}

// An ACL that stays sees every packet while others before and behind it come and go.
TEST_F(Client, noPacketIsUnclassifiedWhileOtherAclsComeAndGo) {
   create("m-ipv4", "a");
   Flood flood;
   for (int i = 0; i < 20; ++i) {
      create("b-ipv4", "a");
      create("z-ipv4", "a");
      ask(policyDelete, AclRecords{i % 2 == 0 ? "b-ipv4" : "z-ipv4"});
      ask(policyDelete, AclRecords{i % 2 == 0 ? "z-ipv4" : "b-ipv4"});
   }
   flood.end();
   EXPECT_GT(flood.sent(), 1000U);
   EXPECT_EQ(packets("m-ipv4"), flood.sent());
}

// ---- Frames on a wire ----

class OnAWire : public Client, public testing::WithParamInterface<AddressFamily> {
 protected:
   // Sends a frame that is no IP packet and waits until it arrives: frames keep their order. What
   // the others come to behind the program does not matter; Linux drops some of the malformed.
   static void waitForMarker(const PacketSocket& from, const PacketSocket& to) {
      const Bytes marker = joined({macs, bytesOf("88b5"), Bytes(46, 0x5a)});
      from.send(marker);
      const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds{5};
      while (!std::ranges::count(to.received(), marker)) {
         ASSERT_LT(std::chrono::steady_clock::now(), deadline);
      }
   }
};

// What has been agreed on for single frames also holds for frames that come through an interface.
TEST_P(OnAWire, countersAreThoseOfTheTcam) {
   Random random{50};
   const bool ipv4 = GetParam() == AddressFamily::ipv4;
   for (int round = 0; round < 10; ++round) {
      AclRecords acl{"p", ipv4 ? Acl::AclType::ipv4 : Acl::AclType::ipv6};
      acl.intf("a");
      for (std::size_t rules = 1 + random() % 40; rules > 0; --rules) {
         randomRule(random, GetParam(), acl);
      }
      ASSERT_EQ(create(acl), "");
      const AclTable table{*acl};
      std::vector<U64> expected(table.entries().size());
      const PacketSocket to{"a"};
      const PacketSocket from{"ap"};
      for (std::size_t i = 0; i < 32 * 32; ++i) {
         Packet packet = randomPacket(random, GetParam());
         const auto rule = (*acl).ruleByIndex(static_cast<U32>(random() % table.entries().size()));
         if (chance(random, 40)) {
            aim(random, *rule->ruleFilter(), packet);
         }
         Bytes frame = frameOf(random, packet);
         frame = chance(random, 25) ? damaged(random, frame) : frame;
         const auto decoded = decodeFrame(LinkType::ethernet, frame);
         const Packet* read = std::get_if<Packet>(&decoded);
         const AclTable::Entry* entry = read == nullptr ? nullptr : table.lookup(*read);
         if (entry != nullptr) {
            expected[static_cast<std::size_t>(entry - table.entries().data())] += 1;
         }
         from.send(frame);
         if (i % 32 == 31) { // fewer than a queue holds
            waitForMarker(from, to);
         }
      }
      for (std::size_t rule = 0; rule < expected.size(); ++rule) {
         ASSERT_EQ(packets("p", rule), expected[rule]) << "round " << round << " rule " << rule;
      }
   }
}
INSTANTIATE_TEST_SUITE_P(Kernel, OnAWire,
                         testing::Values(AddressFamily::ipv4, AddressFamily::ipv6));

} // namespace
