// `RuleIndex` against a scan: random rules and packets of both families, every field alone, the
// numbers of rules at which its bitmaps begin another part, and its bound on memory.
#include "postcard/classifier/RuleIndex.h"

#include "postcard/classifier/RandomRules.h"

#include <gtest/gtest.h>

namespace {

using namespace RulesClientTest;
using Orlix::AddressFamily;
using Orlix::IpGenPrefix;
using Postcard::Classifier::Bits;
using Postcard::Classifier::Prefix;
using Postcard::Classifier::prefixOf;
using Postcard::Classifier::RuleIndex;
using Postcard::Packets::Packet;
using Postcard::Packets::parsePacket;
using Rules = std::vector<RuleMatch>;

std::size_t scan(const Rules& rules, const Packet& packet) {
   const auto found =
         std::ranges::find_if(rules, [&](const RuleMatch& rule) { return matches(rule, packet); });
   return found == rules.end() ? RuleIndex::notFound
                               : static_cast<std::size_t>(found - rules.begin());
}

std::vector<std::size_t> all(const RuleIndex& index, const Packet& packet) {
   std::vector<std::size_t> found;
   index.visitAll(packet, [&](std::size_t rule) {
      found.push_back(rule);
      return false;
   });
   return found;
}

// ---- Random rules ----

class AgainstTheScan : public testing::TestWithParam<AddressFamily> {};

// Half of the packets in either family, 1,000 for each set of rules.
TEST_P(AgainstTheScan, theFirstMatchIsTheSame) {
   Random random{21};
   std::size_t matched = 0;
   const std::size_t rounds = packetsToTry(200'000) / 2 / 1000;
   for (std::size_t round = 0; round < rounds; ++round) {
      Rules rules;
      for (std::size_t count = random() % (round % 10 == 0 ? 900 : 40); count > 0; --count) {
         rules.push_back(randomMatch(random, GetParam()));
      }
      const RuleIndex index{GetParam(), rules};
      for (int i = 0; i < 1000; ++i) {
         const Packet packet = randomPacket(random, GetParam());
         const std::size_t expected = scan(rules, packet);
         matched += expected != RuleIndex::notFound ? 1U : 0U;
         ASSERT_EQ(index.first(packet), expected) << printPacket(packet) << " round " << round;
      }
   }
   EXPECT_GT(matched, rounds * 200); // else the values do not collide, and this proves little
   EXPECT_LT(matched, rounds * 900);
}
INSTANTIATE_TEST_SUITE_P(RuleIndex, AgainstTheScan,
                         testing::Values(AddressFamily::ipv4, AddressFamily::ipv6));

TEST(RuleIndex, allMatchesAreVisitedInOrder) {
   Random random{22};
   Rules rules;
   for (int i = 0; i < 600; ++i) {
      rules.push_back(randomMatch(random, AddressFamily::ipv4));
   }
   const RuleIndex index{AddressFamily::ipv4, rules};
   std::size_t most = 0;
   for (int i = 0; i < 500; ++i) {
      const Packet packet = randomPacket(random, AddressFamily::ipv4);
      std::vector<std::size_t> expected;
      for (std::size_t rule = 0; rule < rules.size(); ++rule) {
         if (matches(rules[rule], packet)) {
            expected.push_back(rule);
         }
      }
      ASSERT_EQ(all(index, packet), expected) << printPacket(packet);
      most = std::max(most, expected.size());
   }
   EXPECT_GT(most, 10U);
}

// ---- Every field alone ----

RuleMatch tcp() {
   RuleMatch rule;
   rule.protocol = 6;
   return rule;
}

template <class Number>
RuleMatch asking(FieldMatch<Number> RuleMatch::*field, Number data, Number mask) {
   RuleMatch rule = tcp();
   rule.*field = {true, data, mask};
   return rule;
}

RuleMatch to(const char* prefix, U8 protocol = 6) {
   RuleMatch rule;
   rule.protocol = protocol;
   rule.destination = prefixOf(IpGenPrefix{prefix});
   return rule;
}

RuleMatch from(const char* prefix) {
   RuleMatch rule = to("0.0.0.0/0");
   rule.source = prefixOf(IpGenPrefix{prefix});
   return rule;
}

struct Single {
   RuleMatch rule;
   const char* matching;
   const char* missing;
};

// Each rule is tried alone, and behind one that asks something else of the same field.
TEST(RuleIndex, everyField) {
   using Match = RuleMatch;
   RuleMatch impossible = tcp();
   impossible.impossible = true;
   const char* const any = "tcp 10.1.2.3:1025 > 192.0.2.1:443 flags=syn checksum=0x12f0 id=0x0107";
   const std::vector<Single> table = {
         {from("10.1.2.0/23"), any, "tcp 10.1.4.3:1 > 192.0.2.1:443"},
         {from("10.1.2.3/32"), any, "tcp 10.1.2.2:1 > 192.0.2.1:443"},
         {to("192.0.2.0/31"), any, "tcp 10.1.2.3:1 > 192.0.2.2:443"},
         {to("128.0.0.0/1"), any, "tcp 10.1.2.3:1 > 127.255.255.255:443"},
         {to("0.0.0.0/0", 17), "udp 1.2.3.4:1 > 1.2.3.4:2", any},
         {to("0.0.0.0/0", 1), "icmp 1.2.3.4 > 1.2.3.4", any},
         {asking<U16>(&Match::sourcePort, 1025, 0xffff), any, "tcp 1.1.1.1:1024 > 1.1.1.1:443"},
         {asking<U16>(&Match::sourcePort, 0, 0), any, "tcp 1.1.1.1 > 1.1.1.1 fragment"},
         {asking<U16>(&Match::sourcePort, 1, 1), any, "tcp 1.1.1.1:2 > 1.1.1.1:443"},
         {asking<U16>(&Match::destinationPort, 442, 0xfffe), any, "tcp 1.1.1.1:1 > 1.1.1.1:444"},
         {asking<U16>(&Match::destinationPort, 0, 0), any, "tcp 1.1.1.1 > 1.1.1.1 fragment"},
         {asking<U16>(&Match::destinationPort, 0x0101, 0x0101), any, "tcp 1.1.1.1:1 > 1.1.1.1:1"},
         {asking<U8>(&Match::tcpFlags, 2, 0x12), any, "tcp 1.1.1.1:1 > 1.1.1.1:1 flags=syn,ack"},
         {asking<U8>(&Match::tcpFlags, 0, 0), any, "tcp 1.1.1.1 > 1.1.1.1 fragment"},
         {asking<U16>(&Match::checksum, 0xf0, 0xff), any,
          "tcp 1.1.1.1:1 > 1.1.1.1:1 checksum=0xf1"},
         {asking<U16>(&Match::checksum, 0, 0x8), any, "tcp 1.1.1.1:1 > 1.1.1.1:1 checksum=0x8"},
         {asking<U16>(&Match::checksum, 0x2f0, 0xff0), any,
          "tcp 1.1.1.1:1 > 1.1.1.1:1 checksum=0xf0"},
         {asking<U16>(&Match::checksum, 0, 0), any, "tcp 1.1.1.1 > 1.1.1.1 fragment"},
         {asking<U16>(&Match::identification, 7, 7), any, "tcp 1.1.1.1:1 > 1.1.1.1:1 id=6"},
         {asking<U16>(&Match::identification, 0x100, 0xff00), any,
          "tcp 1.1.1.1:1 > 1.1.1.1:1 id=7"},
   };
   for (const Single& single : table) {
      const Packet matching = parsePacket(single.matching);
      const Packet missing = parsePacket(single.missing);
      const RuleIndex alone{AddressFamily::ipv4, Rules{single.rule}};
      EXPECT_EQ(alone.first(matching), 0U) << single.missing;
      EXPECT_EQ(alone.first(missing), RuleIndex::notFound) << single.missing;
      const RuleIndex last{AddressFamily::ipv4,
                           Rules{impossible, single.rule, tcp(), to("::/0", 17)}};
      EXPECT_EQ(last.first(matching), 1U) << single.missing;
      EXPECT_NE(last.first(missing), 1U) << single.missing;
   }
}

// Rules of every length around one address: the longest that still contains a packet comes first.
TEST(RuleIndex, prefixesOfEveryLength) {
   for (const auto& [family, text] :
        {std::pair{AddressFamily::ipv4, "201.150.99.170"},
         {AddressFamily::ipv6, "2001:db8:5a5a:a5a5:f00f:1234:8001:fedc"}}) {
      const IpGenPrefix whole{text};
      const unsigned bits = whole.length();
      Rules rules;
      for (unsigned length = bits + 1; length-- > 0;) {
         rules.push_back(tcp());
         rules.back().destination = prefixOf(IpGenPrefix{family, whole.address(), length});
      }
      const RuleIndex index{family, rules};
      for (unsigned flipped = 0; flipped <= bits; ++flipped) {
         Packet packet;
         packet.family = family;
         packet.protocol = 6;
         std::ranges::copy(whole.address(), packet.destination.begin());
         if (flipped < bits) { // the packet's address agrees in `flipped` bits
            packet.destination.at(flipped / 8) ^= static_cast<U8>(0x80U >> flipped % 8);
         }
         EXPECT_EQ(index.first(packet), bits - flipped) << text;
      }
   }
}

// ---- Numbers of rules ----

// Where words, leaves and chunks of the bitmaps begin and end.
TEST(RuleIndex, everyRuleOfAnyNumber) {
   for (const std::size_t count : {0U, 1U, 2U, 63U, 64U, 65U, 511U, 512U, 513U, 4095U, 4096U, 4097U,
                                   8191U, 8192U, 8193U, 20'000U}) {
      Rules rules;
      for (std::size_t i = 0; i < count; ++i) {
         rules.push_back(asking<U16>(&RuleMatch::destinationPort, static_cast<U16>(i), 0xffff));
      }
      const RuleIndex index{AddressFamily::ipv4, rules};
      Packet packet = parsePacket("tcp 10.1.2.3:1 > 192.0.2.1:1");
      for (std::size_t port = 0; port < count + 2; ++port) {
         packet.destinationPort = static_cast<U16>(port);
         ASSERT_EQ(index.first(packet), port < count ? port : RuleIndex::notFound) << count;
      }
   }
}

TEST(RuleIndex, aRuleForEveryPacketHidesThoseBehindIt) {
   for (const std::size_t place : {0U, 63U, 64U, 511U, 4096U, 8192U, 8999U}) {
      Rules rules(9000, asking<U16>(&RuleMatch::sourcePort, 7, 0xffff));
      rules.at(place) = tcp();
      const RuleIndex index{AddressFamily::ipv6, rules};
      EXPECT_EQ(index.first(parsePacket("tcp [::1]:8 > [::2]:2")), place);
      EXPECT_EQ(index.first(parsePacket("tcp [::1]:7 > [::2]:2")), 0U);
      EXPECT_EQ(index.first(parsePacket("tcp [::1] > [::2] fragment")), place);
      EXPECT_EQ(index.first(parsePacket("udp [::1]:7 > [::2]:2")), RuleIndex::notFound);
      EXPECT_EQ(index.first(parsePacket("tcp 1.1.1.1:7 > 1.1.1.1:2")), RuleIndex::notFound);
   }
}

// ---- Memory ----

// The worst that rules can be: each asks for values of its own in every field. All masks are
// prefixes of some direction.
Rules allDifferent(AddressFamily family, std::size_t count) {
   Random random{23};
   Rules rules;
   for (std::size_t i = 0; i < count; ++i) {
      const auto address = [&]() -> Prefix {
         return family == AddressFamily::ipv4 ? Prefix{{random() & 0xffffffff00000000, 0}, 32}
                                              : Prefix{{random(), random()}, 128};
      };
      RuleMatch rule = tcp();
      rule.source = address();
      rule.destination = address();
      rule.sourcePort = {true, static_cast<U16>(random()), 0xffff};
      rule.destinationPort = {true, static_cast<U16>(random()), 0xffff};
      rule.checksum = {true, static_cast<U16>(random()), 0x7fff};
      rule.tcpFlags = {true, static_cast<U8>(random()), 0xff};
      rules.push_back(rule);
   }
   return rules;
}

TEST(RuleIndex, memoryOf100000DifferentRules) {
   constexpr std::size_t count = 100'000;
   for (const AddressFamily family : {AddressFamily::ipv4, AddressFamily::ipv6}) {
      const Rules rules = allDifferent(family, count);
      const RuleIndex index{family, rules};
      RecordProperty("bytesPerRule", static_cast<int>(index.bytes() / count));
      EXPECT_LE(index.bytes(), count * 2'400);
      EXPECT_GE(index.bytes(), count * 300); // else it does not count what it takes
   }
}

// A prefix inside a prefix inside a prefix: sets inherit and do not multiply.
TEST(RuleIndex, memoryOfNestedRules) {
   constexpr std::size_t count = 100'000;
   Rules rules(count, tcp());
   Random random{24};
   for (RuleMatch& rule : rules) {
      const auto length = static_cast<U8>(random() % 33);
      const U64 address =
            (random() & 0x0707070700000000) & (length == 0 ? 0 : ~U64{0} << (64 - length));
      rule.destination = {{address, 0}, length};
      const auto bits = static_cast<unsigned>(random() % 17);
      const auto mask = static_cast<U16>(0xffff0000U >> bits);
      rule.destinationPort = {true, static_cast<U16>(random() & mask), mask};
   }
   const RuleIndex index{AddressFamily::ipv4, rules};
   EXPECT_LE(index.bytes(), count * 1'000);
}

// ---- Replacement ----

TEST(RuleIndex, isReplacedAsAWhole) {
   RuleIndex index{AddressFamily::ipv4, Rules{to("10.0.0.0/8"), tcp()}};
   const Packet packet = parsePacket("tcp 10.1.2.3:1 > 192.0.2.1:1");
   EXPECT_EQ(index.first(packet), 1U);
   index = RuleIndex{AddressFamily::ipv4, Rules{to("192.0.0.0/8")}};
   EXPECT_EQ(index.first(packet), 0U);
   index = RuleIndex{AddressFamily::ipv4, Rules{}};
   EXPECT_EQ(index.first(packet), RuleIndex::notFound);
   EXPECT_EQ(all(index, packet), std::vector<std::size_t>{});
}

} // namespace
