// Policies through the real helper into the ternary memory: for every packet, the ACL does what the
// structured filters mean. Where the two differ because the helper is bound to build its rules so,
// the difference stands here by name.
#include "postcard/classifier/PolicyMeaning.h"

#include "postcard/classifier/AclTable.h"
#include "postcard/classifier/RandomPackets.h"
#include "support/HelperRecords.h"
#include "support/PolicyRecords.h"
#include "support/RuleText.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

using namespace RulesClientTest;
using Orlix::AddressFamily;
using Postcard::Classifier::AclTable;
using Postcard::Packets::parsePacket;
using TestSupport::ClassRecords;
using TestSupport::FilterRecords;
using TestSupport::HelperRecords;
using TestSupport::PolicyRecords;
using TestSupport::ProtoRecords;
using TestSupport::Ranges;

// The ACL of a policy in one family, as the helper makes it.
class PolicyAcl {
 public:
   PolicyAcl(const PolicyRecords& policy, AddressFamily family, bool tcpFlags = true)
      : records_{tcpFlags} {
      const bool ipv4 = family == AddressFamily::ipv4;
      message_ = records_.helper
                       ->createPolicy(policy.data(), ipv4 ? PolicyMap::matchIpAccessGroup()
                                                          : PolicyMap::matchIpv6AccessGroup())
                       .str();
      const auto key = policy.data()->key().name().str() + (ipv4 ? "-ipv4" : "-ipv6");
      acl_ = records_.config(key);
      table_ = std::make_unique<AclTable>(*acl_);
   }

   // The class is what stands before the family in the name of the rule.
   std::optional<Fate> fate(const Packet& packet) const {
      const AclTable::Entry* entry = table_->lookup(packet);
      if (entry == nullptr) {
         return std::nullopt;
      }
      const std::string rule = entry->rule.str();
      return Fate{rule.substr(0, rule.find("-ipv")), entry->sampled, entry->dscpAfter(packet.dscp)};
   }
   const std::string& message() const { return message_; }
   std::vector<std::string> rules() const { return TestSupport::rulesByIndex(*acl_); }
   bool holdable() const { return table_->entries().size() == acl_->ruleByIndexs(); }

 private:
   HelperRecords records_;
   std::string message_;
   Pello::Ptr<HelperRecords::Config> acl_;
   std::unique_ptr<AclTable> table_;
};

std::string text(const std::optional<Fate>& fate) {
   return fate ? fate->className + (fate->sampled ? " sampled" : "") +
                       " dscp=" + std::to_string(fate->dscp)
               : "nothing";
}

// What the ACL does, and what the policy means, in words.
std::pair<std::string, std::string> both(const PolicyRecords& policy, const char* packetText,
                                         bool tcpFlags = true) {
   const Packet packet = parsePacket(packetText);
   return {text(PolicyAcl{policy, packet.family, tcpFlags}.fate(packet)),
           text(PolicyMeaning{*policy.data(), {}}.meaning(packet))};
}

using Pair = std::pair<std::string, std::string>;

// ---- Random policies ----

Ranges randomRanges(Random& random) {
   Ranges ranges;
   for (std::size_t count = random() % 3; count > 0; --count) {
      const U32 low = pick(random, somePorts);
      ranges.emplace_back(low, std::max<U32>(low, pick(random, somePorts)));
   }
   return ranges;
}

void randomField(Random& random, ProtoRecords field, bool flags) {
   for (std::size_t entries = random() % 3; entries > 0; --entries) {
      field.ports(randomRanges(random), randomRanges(random));
   }
   for (std::size_t count = flags ? random() % 3 : 0; count > 0; --count) {
      const U8 mask = pick<U8>(random, {2, 16, 18});
      field.flag(static_cast<U8>(pick<U8>(random, {0, 2, 16}) & mask), mask);
   }
}

struct Draw {
   bool everyClassNamesItsProtocols;
   bool tcpFlags; // of the hardware
};

void randomFilter(Random& random, FilterRecords filter, AddressFamily family, Draw draw) {
   const bool ipv4 = family == AddressFamily::ipv4;
   const auto prefix = [&] {
      const auto all = prefixes(family);
      return all[1 + random() % (all.size() - 1)]; // without the one that stands for both families
   };
   if (chance(random, 60)) {
      filter.source(prefix());
   }
   if (chance(random, 60)) {
      filter.destination(prefix());
   }
   if (chance(random, 50)) {
      const U32 mask = pick<U32>(random, {1, 3, 0xff, 0xffff});
      filter.sampleMatch(pick(random, someSamples) & mask, mask,
                         ipv4 ? pick<U32>(random, {0, 4}) : 0);
   }
   const bool tcp = chance(random, 50);
   const bool udp = chance(random, 50) || (draw.everyClassNamesItsProtocols && !tcp);
   if (tcp) {
      randomField(random, filter.tcp(), true);
   }
   if (udp) {
      randomField(random, filter.udp(), !draw.tcpFlags); // else it is refused
   }
}

PolicyRecords randomPolicy(Random& random, AddressFamily family, Draw draw) {
   PolicyRecords policy{"p"};
   policy.intf4("Ethernet1").intf6("Ethernet1");
   const auto option = family == AddressFamily::ipv4 ? PolicyMap::matchIpAccessGroup()
                                                     : PolicyMap::matchIpv6AccessGroup();
   policy.noRules(option);
   for (std::size_t classes = 1 + random() % 4; classes > 0; --classes) {
      ClassRecords classMap = policy.classMap("c" + std::to_string(classes));
      if (chance(random, 60)) {
         classMap.sample();
      }
      if (chance(random, 30)) {
         classMap.sampleAll();
      }
      if (chance(random, 30)) {
         classMap.setDscp(pick<U8>(random, {0, 46}));
      }
      randomFilter(random, classMap.filter(option, "acl"), family, draw);
   }
   return policy;
}

struct Walk {
   AddressFamily family;
   Draw draw;
   Differences differences;
};

class RandomPolicies : public testing::TestWithParam<Walk> {};

// Four walks, of policies with 600 packets each.
TEST_P(RandomPolicies, theAclDoesWhatThePolicyMeans) {
   const Walk& walk = GetParam();
   Random random{7};
   std::size_t matched = 0;
   const std::size_t rounds = packetsToTry(480'000) / 4 / 600;
   for (std::size_t round = 0; round < rounds; ++round) {
      const PolicyRecords policy = randomPolicy(random, walk.family, walk.draw);
      const PolicyAcl acl{policy, walk.family, walk.draw.tcpFlags};
      ASSERT_EQ(acl.message(), "");
      ASSERT_TRUE(acl.holdable());
      const PolicyMeaning meaning{*policy.data(), walk.differences};
      for (int i = 0; i < 600; ++i) {
         const Packet packet = randomPacket(random, walk.family);
         const auto fate = acl.fate(packet);
         matched += fate ? 1U : 0U;
         ASSERT_EQ(text(fate), text(meaning.meaning(packet)))
               << printPacket(packet) << testing::PrintToString(acl.rules());
      }
   }
   EXPECT_GT(matched, rounds * 60);
   EXPECT_LT(matched, rounds * 540);
}

// The first two keep out of the way of every difference but one, which every class that marks has.
INSTANTIATE_TEST_SUITE_P(
      PolicyMeaning, RandomPolicies,
      testing::Values(Walk{AddressFamily::ipv4, {true, true}, {.dscpIsNotRewritten = true}},
                      Walk{AddressFamily::ipv6, {true, true}, {.dscpIsNotRewritten = true}},
                      Walk{AddressFamily::ipv4,
                           {false, false},
                           {.noProtocolMeansTcpAndUdp = true,
                            .tcpFlagsAreIgnored = true,
                            .dscpIsNotRewritten = true}},
                      Walk{AddressFamily::ipv6,
                           {false, false},
                           {.noProtocolMeansTcpAndUdp = true,
                            .tcpFlagsAreIgnored = true,
                            .dscpIsNotRewritten = true}}));

// ---- The differences, one by one: {what the ACL does, what the policy means} ----

PolicyRecords onePolicy() {
   PolicyRecords policy{"p"};
   policy.intf4("Ethernet1").intf6("Ethernet1");
   return policy;
}

TEST(Difference, aClassWithoutProtocolsIsOnlyAboutTcpAndUdp) {
   PolicyRecords policy = onePolicy();
   policy.classMap("c").sampleAll().filter4();
   EXPECT_EQ(both(policy, "icmp 1.2.3.4 > 5.6.7.8"), (Pair{"nothing", "c sampled dscp=0"}));
   EXPECT_EQ(both(policy, "tcp 1.2.3.4:1 > 5.6.7.8:2"),
             (Pair{"c sampled dscp=0", "c sampled dscp=0"}));
}

TEST(Difference, theDscpIsNeverRewritten) {
   PolicyRecords policy = onePolicy();
   policy.classMap("c").sampleAll().setDscp(46).filter4().tcp();
   EXPECT_EQ(both(policy, "tcp 1.2.3.4:1 > 5.6.7.8:2 dscp=10"),
             (Pair{"c sampled dscp=10", "c sampled dscp=46"}));
   EXPECT_NE(PolicyAcl(policy, AddressFamily::ipv4).rules().at(0).find("actions=02 dscp=0/0"),
             std::string::npos); // the action is there, its mask is 0
}

TEST(Difference, withoutTheAbilityInHardwareTcpFlagsAreNotCompared) {
   PolicyRecords policy = onePolicy();
   const FilterRecords filter = policy.classMap("c").sampleAll().filter4();
   FilterRecords{filter}.tcp().flag(2, 18);
   FilterRecords{filter}.udp().flag(2, 18); // refused where the hardware has the ability
   EXPECT_EQ(both(policy, "tcp 1.2.3.4:1 > 5.6.7.8:2 flags=ack", false),
             (Pair{"c sampled dscp=0", "nothing"}));
   EXPECT_EQ(both(policy, "udp 1.2.3.4:1 > 5.6.7.8:2", false),
             (Pair{"c sampled dscp=0", "nothing"}));
   EXPECT_EQ(PolicyAcl(policy, AddressFamily::ipv4).message(),
             "Unsupported match(es): 'TCP Flag', in configuration");
}

TEST(Difference, aSecondRuleOfTheSameClassOverwritesTheFirst) {
   PolicyRecords policy = onePolicy();
   ClassRecords classMap = policy.classMap("c").sample();
   classMap.filter4("first").source("10.0.0.0/8").sampleMatch(1, 1).tcp();
   classMap.filter4("second").source("11.0.0.0/8").tcp();
   // Both make a rule of the same name, so there is one rule, at two indexes, with the prefix of
   // the second and the sample match of the first.
   EXPECT_EQ(
         PolicyAcl(policy, AddressFamily::ipv4).rules(),
         (std::vector<std::string>{
               "0 c-ipv4-tcp: 11.0.0.0/8 > 0.0.0.0/0 proto=6 sample=1/1/0 actions=0 dscp=0/0",
               "1 c-ipv4-tcp: 11.0.0.0/8 > 0.0.0.0/0 proto=6 sample=1/1/0 actions=0 dscp=0/0"}));
   EXPECT_EQ(both(policy, "tcp 10.0.0.1:1 > 5.6.7.8:2 checksum=1"),
             (Pair{"nothing", "c sampled dscp=0"}));
   EXPECT_EQ(both(policy, "tcp 11.0.0.1:1 > 5.6.7.8:2"), (Pair{"nothing", "c sampled dscp=0"}));
   EXPECT_EQ(both(policy, "tcp 11.0.0.1:1 > 5.6.7.8:2 checksum=1"),
             (Pair{"c sampled dscp=0", "c sampled dscp=0"}));
}

TEST(Difference, aClassThatIsRefusedEndsThePolicy) {
   PolicyRecords policy = onePolicy();
   policy.classMap("before").sampleAll().filter4().tcp().ports({}, {{80, 80}});
   policy.classMap("refused").action(PolicyMap::ActionType::drop).filter4().udp();
   policy.classMap("behind").sampleAll().filter4().tcp();
   EXPECT_EQ(PolicyAcl(policy, AddressFamily::ipv4).message(),
             "Unsupported action(s): 'drop', in configuration");
   EXPECT_EQ(both(policy, "tcp 1.2.3.4:1 > 5.6.7.8:80"),
             (Pair{"before sampled dscp=0", "before sampled dscp=0"}));
   EXPECT_EQ(both(policy, "udp 1.2.3.4:1 > 5.6.7.8:2"), (Pair{"nothing", "refused dscp=0"}));
   EXPECT_EQ(both(policy, "tcp 1.2.3.4:1 > 5.6.7.8:2"), (Pair{"nothing", "behind sampled dscp=0"}));
}

// ---- Not differences, but easily taken for some ----

TEST(Meaning, aPortEntryWithoutRangesMatchesNothing) {
   PolicyRecords policy = onePolicy();
   policy.classMap("c").sampleAll().filter4().tcp().ports({}, {});
   EXPECT_EQ(both(policy, "tcp 1.2.3.4:1 > 5.6.7.8:2"), (Pair{"nothing", "nothing"}));
   EXPECT_EQ(PolicyAcl(policy, AddressFamily::ipv4).rules(), std::vector<std::string>{});
}

TEST(Meaning, aPacketThatTheSampleBitsDoNotChooseGoesOnToTheNextClass) {
   PolicyRecords policy = onePolicy();
   policy.classMap("some").sample().filter4().sampleMatch(1, 1).tcp();
   policy.classMap("rest").filter4().tcp();
   EXPECT_EQ(both(policy, "tcp 1.2.3.4:1 > 5.6.7.8:2 checksum=1"),
             (Pair{"some sampled dscp=0", "some sampled dscp=0"}));
   EXPECT_EQ(both(policy, "tcp 1.2.3.4:1 > 5.6.7.8:2"), (Pair{"rest dscp=0", "rest dscp=0"}));
}

TEST(Meaning, sampleBitsCountWithThePlainActionOnly) {
   PolicyRecords all = onePolicy();
   all.classMap("c").sampleAll().filter4().sampleMatch(1, 1).tcp();
   EXPECT_EQ(both(all, "tcp 1.2.3.4:1 > 5.6.7.8:2"),
             (Pair{"c sampled dscp=0", "c sampled dscp=0"}));
   PolicyRecords none = onePolicy();
   none.classMap("c").filter4().sampleMatch(1, 1).tcp();
   EXPECT_EQ(both(none, "tcp 1.2.3.4:1 > 5.6.7.8:2"), (Pair{"c dscp=0", "c dscp=0"}));
   PolicyRecords two = onePolicy(); // "sample all" yields to "sample"
   two.classMap("c").sample().sampleAll().filter4().sampleMatch(1, 1).tcp();
   EXPECT_EQ(both(two, "tcp 1.2.3.4:1 > 5.6.7.8:2"), (Pair{"nothing", "nothing"}));
}

TEST(Meaning, aLaterFragmentHasNoPortsNotEvenInTheFullRange) {
   PolicyRecords policy = onePolicy();
   policy.classMap("ports").sampleAll().filter4().tcp().ports({{0, 65535}}, {});
   policy.classMap("checksum").sample().filter4().sampleMatch(0, 1).tcp();
   policy.classMap("rest").sample().filter4().sampleMatch(1, 1, 4).tcp();
   EXPECT_EQ(both(policy, "tcp 1.2.3.4 > 5.6.7.8 id=1 fragment"),
             (Pair{"rest sampled dscp=0", "rest sampled dscp=0"}));
   EXPECT_EQ(both(policy, "tcp 1.2.3.4 > 5.6.7.8 fragment"), (Pair{"nothing", "nothing"}));
}

TEST(Meaning, anIdentificationIsNotFoundInIpv6) {
   PolicyRecords policy = onePolicy();
   policy.classMap("c").sample().filter6().sampleMatch(0, 1, 4).tcp();
   EXPECT_EQ(both(policy, "tcp [::1]:1 > [::2]:2"), (Pair{"nothing", "nothing"}));
}

} // namespace
