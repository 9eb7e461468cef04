// The ternary memory: the same first match as a reading of the rules one by one, its counters, its
// independence of the ACL, and the ACLs that it does not take.
#include "postcard/classifier/AclTable.h"

#include "postcard/classifier/RandomAcl.h"
#include "postcard/classifier/RuleOracle.h"
#include "support/RuleText.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using namespace RulesClientTest;
using Orlix::AddressFamily;
using Orlix::IpGenPrefix;
using Postcard::Classifier::AclError;
using Postcard::Classifier::AclTable;
using Postcard::Packets::parsePacket;

std::optional<U32> indexOf(const AclTable::Entry* entry) {
   return entry == nullptr ? std::nullopt : std::optional{entry->index};
}

class AgainstTheOracle : public testing::TestWithParam<AddressFamily> {};

// 2 families, 250 ACLs each, 1,000 packets each.
TEST_P(AgainstTheOracle, theFirstMatchIsTheSame) {
   Random random{20};
   const auto type = GetParam() == AddressFamily::ipv4 ? Acl::AclType::ipv4 : Acl::AclType::ipv6;
   std::size_t matched = 0;
   for (int round = 0; round < 250; ++round) {
      AclRecords acl{"a", type};
      for (std::size_t rules = random() % 30; rules > 0; --rules) {
         randomRule(random, GetParam(), acl);
      }
      const AclTable table{*acl};
      for (int i = 0; i < 1000; ++i) {
         const Packet packet = randomPacket(random, GetParam());
         const auto expected = firstMatch(*acl, packet);
         matched += expected ? 1U : 0U;
         ASSERT_EQ(indexOf(table.lookup(packet)), expected)
               << printPacket(packet) << testing::PrintToString(TestSupport::rulesByIndex(*acl));
      }
   }
   EXPECT_GT(matched, 50'000U); // else the values do not collide, and this proves little
   EXPECT_LT(matched, 225'000U);
}
INSTANTIATE_TEST_SUITE_P(AclTable, AgainstTheOracle,
                         testing::Values(AddressFamily::ipv4, AddressFamily::ipv6));

TEST(AclTable, packetsOfTheOtherFamilyMatchNothing) {
   const AclTable ipv4{*AclRecords{"a"}.rules(1)};
   const AclTable ipv6{*AclRecords{"a", Acl::AclType::ipv6}.rules(1)};
   const Packet packet4 = parsePacket("tcp 1.2.3.4:1 > 5.6.7.8:2");
   const Packet packet6 = parsePacket("tcp [::1]:1 > [::2]:2");
   EXPECT_NE(ipv4.lookup(packet4), nullptr);
   EXPECT_EQ(ipv4.lookup(packet6), nullptr);
   EXPECT_EQ(ipv6.lookup(packet4), nullptr);
   EXPECT_NE(ipv6.lookup(packet6), nullptr); // 0.0.0.0/0 means every address of either family
}

TEST(AclTable, aLaterFragmentHasNoPortInAnyRange) {
   AclRecords acl{"a"};
   acl.rule()->ruleFilter()->sportDataMaskValidIs(true); // mask 0: every port
   const Packet fragment = parsePacket("tcp 1.2.3.4 > 5.6.7.8 fragment");
   EXPECT_EQ(AclTable{*acl}.lookup(fragment), nullptr);
   EXPECT_NE(AclTable{*acl}.lookup(parsePacket("tcp 1.2.3.4:9 > 5.6.7.8:9")), nullptr);
   acl.rule();
   EXPECT_EQ(AclTable{*acl}.lookup(fragment)->index, 1U);
}

TEST(AclTable, actions) {
   AclRecords acl{"a"};
   const auto nothing = acl.rule()->ruleAction();
   nothing->actionDelAll();
   nothing->dscpDataAndMaskIs({Orlix::DscpValue{U8{46}}, 0x3f}); // without the action: no meaning
   const auto marked = acl.rule()->ruleAction();
   marked->actionIs(RuleAction::setDscpAction);
   marked->dscpDataAndMaskIs({Orlix::DscpValue{U8{0xff}}, 0xf0});
   const auto unmarked = acl.rule()->ruleAction();
   unmarked->actionIs(RuleAction::setDscpAction);
   unmarked->dscpDataAndMaskIs({Orlix::DscpValue{U8{46}}, 0});
   const AclTable table{*acl};
   EXPECT_FALSE(table.entries()[0].sampled);
   EXPECT_EQ(table.entries()[0].dscpAfter(5), 5);
   EXPECT_TRUE(table.entries()[1].sampled);
   EXPECT_EQ(table.entries()[1].dscpAfter(5), 0x35); // six bits, those under the mask
   EXPECT_EQ(table.entries()[2].dscpAfter(5), 5);    // a mask of 0 rewrites nothing
}

TEST(AclTable, hitsAreCountedWhereTheyFall) {
   AclRecords acl{"a"};
   acl.rule(6);
   acl.rule(17);
   acl.rule(6);
   AclTable table{*acl};
   const Packet packet = parsePacket("tcp 1.2.3.4:1 > 5.6.7.8:2");
   table.lookup(packet);
   EXPECT_EQ(table.hit(packet)->hits, 1U);
   EXPECT_EQ(table.hit(packet)->hits, 2U);
   EXPECT_EQ(table.hit(parsePacket("udp 1.2.3.4:1 > 5.6.7.8:2"))->index, 1U);
   EXPECT_EQ(table.hit(parsePacket("icmp 1.2.3.4 > 5.6.7.8")), nullptr);
   EXPECT_EQ(table.entries()[0].hits, 2U);
   EXPECT_EQ(table.entries()[1].hits, 1U);
   EXPECT_EQ(table.entries()[2].hits, 0U);
}

TEST(AclTable, oneRuleAtTwoIndexesIsTwoEntries) {
   AclRecords acl{"a"};
   const auto rule = acl.rule();
   acl.data()->ruleByIndexIs(7, rule);
   const AclTable table{*acl};
   ASSERT_EQ(table.entries().size(), 2U);
   EXPECT_EQ(table.entries()[1].index, 7U);
   EXPECT_EQ(table.lookup(parsePacket("tcp 1.2.3.4:1 > 5.6.7.8:2"))->index, 0U);
}

TEST(AclTable, doesNotLeanOnTheAcl) {
   AclRecords acl{"a"};
   const auto rule = acl.rule();
   acl.intf("Ethernet1");
   const AclTable table{*acl};
   rule->ruleFilter()->protoIs(OruPostcardTelemetry::Protocol{U8{17}});
   rule->ruleAction()->actionDelAll();
   acl.data()->ruleByIndexDelAll();
   acl.data()->policyIntfDelAll();
   EXPECT_TRUE(table.lookup(parsePacket("tcp 1.2.3.4:1 > 5.6.7.8:2"))->sampled);
   EXPECT_EQ(table.entries()[0].rule, "r0");
   EXPECT_TRUE(table.attachedTo(Orlix::IntfId{"Ethernet1"}));
}

// More than a few, so that the order in which the ACL lists them is no order.
TEST(AclTable, interfaces) {
   AclRecords acl{"a"};
   for (int i = 40; i > 0; i -= 2) {
      acl.intf("Ethernet" + std::to_string(i));
   }
   const AclTable table{*acl};
   for (int i = 1; i <= 41; ++i) {
      EXPECT_EQ(table.attachedTo(Orlix::IntfId{"Ethernet" + std::to_string(i)}), i % 2 == 0) << i;
   }
   EXPECT_TRUE(table.attachedTo(Orlix::IntfId{}));
   EXPECT_EQ(table.interfaces().size(), 20U);
   EXPECT_TRUE(std::ranges::is_sorted(table.interfaces()));
}

struct Refusal {
   Acl::AclType type;
   std::function<void(RuleConfig&)> spoil;
   std::string text;
};

const Acl::AclType v4 = Acl::AclType::ipv4;
const Acl::AclType v6 = Acl::AclType::ipv6;

TEST(AclTable, whatItDoesNotTake) {
   const auto source = [](std::string_view prefix) {
      return [prefix](RuleConfig& rule) { rule.ruleFilter()->sourceIs(IpGenPrefix{prefix}); };
   };
   const std::vector<Refusal> table = {
         {v4, [](RuleConfig& rule) { rule.ruleFilterDel(); }, "rule 'r1' of a has no filter"},
         {v4, [](RuleConfig& rule) { rule.ruleActionDel(); }, "rule 'r1' of a has no action"},
         {v4, source("2001:db8::/32"),
          "rule 'r1' of a has the source prefix 2001:db8::/32, which is not IPv4"},
         {v4, source("::/0"), "rule 'r1' of a has the source prefix ::/0, which is not IPv4"},
         {v6, source("10.0.0.0/8"),
          "rule 'r1' of a has the source prefix 10.0.0.0/8, which is not IPv6"},
         {v6, [](RuleConfig& rule) { rule.ruleFilter()->destinationIs(IpGenPrefix{}); },
          "rule 'r1' of a has no destination prefix"},
         {v4, [](RuleConfig& rule) { rule.ruleAction()->actionIs(RuleAction::policeAction); },
          "rule 'r1' of a asks for policing, which is not supported"},
         {v4,
          [](RuleConfig& rule) {
             const auto sample = rule.ruleFilter()->sampleDataAndMaskIs(Pello::String{"s"});
             sample->maskIs(1);
             sample->versionIs(3);
          },
          "rule 'r1' of a samples by the unknown field 3"},
         {static_cast<Acl::AclType>(9), [](RuleConfig&) {}, "a is of the unknown type 9"},
   };
   for (const Refusal& refusal : table) {
      AclRecords acl{"a", refusal.type};
      acl.rule();
      refusal.spoil(*acl.rule());
      try {
         const AclTable taken{*acl};
         ADD_FAILURE() << "taken: " << refusal.text;
      } catch (const AclError& error) {
         EXPECT_EQ(error.what(), refusal.text);
      }
   }
}

// The rule of a port is known without a look at the others.
TEST(AclTable, everyPortOfThousandsOfEntries) {
   AclRecords acl{"a"};
   for (U32 i = 0; i < 4000; ++i) {
      auto& filter = *acl.rule()->ruleFilter();
      filter.dportDataMaskValidIs(true);
      filter.dportDataMaskIs({static_cast<U16>(2000 + i), 0xffff});
   }
   AclTable table{*acl};
   Packet packet = parsePacket("tcp 1.2.3.4:1 > 5.6.7.8:2");
   for (U16 port = 1900; port < 6100; ++port) {
      packet.destinationPort = port;
      const bool has = port >= 2000 && port < 6000;
      ASSERT_EQ(indexOf(table.hit(packet)), has ? std::optional<U32>{port - 2000U} : std::nullopt);
   }
   for (const AclTable::Entry& entry : table.entries()) {
      ASSERT_EQ(entry.hits, 1U) << entry.index;
   }
}

} // namespace
