// Sets of packets: their algebra, the packets that they give back, and what happens at a limit.
#include "postcard/analysis/PacketSet.h"

#include "postcard/analysis/RegionSets.h"
#include "postcard/analysis/SmallWorld.h"

#include <gtest/gtest.h>

namespace {

using namespace AnalysisTest;
using namespace Postcard::Analysis;
using Policy::Family;
using Postcard::Packets::parsePacket;

// More time than a program would take: sanitizers are slow.
const Limits small{.firstNodes = 20'000, .mostNodes = 1U << 20, .seconds = 600};

TEST(PacketSet, rangesHoldTheirNumbers) {
   const PacketSpace space{small};
   for (const auto& [low, high] :
        std::vector<std::pair<U16, U16>>{{0, 65535}, {0, 0}, {1025, 65535}, {80, 443}, {7, 7}}) {
      const PacketSet set = space.range(Field::destinationPort, low, high) & space.withPorts();
      for (const unsigned port : {0U, 1U, 7U, 8U, 80U, 443U, 444U, 1024U, 1025U, 65535U}) {
         const Packet packet = parsePacket("tcp 1.2.3.4:1 > 5.6.7.8:" + std::to_string(port));
         EXPECT_EQ(space.contains(set, packet), low <= port && port <= high) << low << ' ' << port;
      }
   }
}

TEST(PacketSet, equalSetsAreEqualHoweverTheyWereMade) {
   const PacketSpace space{small};
   PacketSet odd;
   for (U16 value = 1; value < 256; value = static_cast<U16>(value + 2)) {
      odd |= space.bits(Field::tcpFlags, value, 0xff);
   }
   EXPECT_EQ(odd, space.bits(Field::tcpFlags, 1, 1));
   EXPECT_EQ(space.anything() - odd, space.bits(Field::tcpFlags, 0, 1));
   EXPECT_TRUE((odd - odd).empty());
   EXPECT_EQ(odd & space.anything(), odd);
}

// A packet of each set is in the set and is read back from its text.
TEST(PacketSet, givesPacketsThatArePackets) {
   const PacketSpace space{small};
   struct Row {
      PacketSet set;
      Family family;
      const char* packet;
   };
   const AddressBlock ten = blockOf(Orlix::IpGenPrefix{"10.1.0.0/16"});
   const AddressBlock doc = blockOf(Orlix::IpGenPrefix{"2001:db8::/32"});
   const Row rows[] = {
         {space.everything(), Family::ipv4, "tcp 0.0.0.0:0 > 0.0.0.0:0"},
         {space.everything(), Family::ipv6, "tcp [::]:0 > [::]:0"},
         {space.everything() - space.withTcpFlags(), Family::ipv4, "udp 0.0.0.0:0 > 0.0.0.0:0"},
         {space.everything() - space.withPorts(), Family::ipv4, "icmp 0.0.0.0 > 0.0.0.0"},
         {space.everything() - space.withPorts(), Family::ipv6, "icmpv6 [::] > [::]"},
         {(space.everything() & space.range(Field::protocol, 6, 6)) - space.withPorts(),
          Family::ipv4, "tcp 0.0.0.0 > 0.0.0.0 fragment"},
         {space.everything() & space.range(Field::protocol, 200, 255), Family::ipv4,
          "200 0.0.0.0 > 0.0.0.0"},
         {space.withPorts() & space.addresses(Side::source, ten) &
                space.range(Field::sourcePort, 1024, 65535) &
                space.bits(Field::checksum, 0x1200, 0xff00) & space.bits(Field::tcpFlags, 2, 18),
          Family::ipv4, "tcp 10.1.0.0:1024 > 0.0.0.0:0 flags=syn checksum=0x1200"},
         {space.withPorts() & space.addresses(Side::destination, doc) &
                space.bits(Field::identification, 0, 0),
          Family::ipv6, "tcp [::]:0 > [2001:db8::]:0"},
   };
   for (const Row& row : rows) {
      const auto packet = space.packetIn(row.set, row.family);
      ASSERT_TRUE(packet) << row.packet;
      EXPECT_EQ(*packet, parsePacket(row.packet)) << printPacket(*packet);
      EXPECT_EQ(parsePacket(printPacket(*packet)), *packet);
      EXPECT_TRUE(space.contains(row.set, *packet)) << row.packet;
   }
   EXPECT_FALSE(space.packetIn(PacketSet{}, Family::ipv4));
}

// ---- Limits ----

// A set that needs a node for each of many addresses.
void growBeyondBounds(const PacketSpace& space) {
   PacketSet set;
   for (U64 i = 0; i < 1'000'000; ++i) {
      AddressBlock block;
      block.value[0] = i * 0x9e3779b97f4a7c15U;
      block.mask[0] = ~U64{0};
      set |= space.addresses(Side::source, block);
   }
}

TEST(Limit, usedUpNodesFailUntilTheSpaceIsReset) {
   PacketSpace space{{.firstNodes = 2'000, .mostNodes = 5'000, .seconds = 60}};
   const PacketSet before = space.range(Field::sourcePort, 1, 9);
   try {
      growBeyondBounds(space);
      FAIL() << "no limit was reached";
   } catch (const LimitReached& limit) {
      EXPECT_FALSE(limit.timeIsUp());
      EXPECT_STREQ(limit.what(), "the diagrams of this question have too many nodes");
   }
   // Whatever the library answers now may be wrong.
   EXPECT_THROW(space.range(Field::sourcePort, 1, 9), LimitReached);
   EXPECT_THROW(before & space.anything(), LimitReached);
   space.reset();
   const PacketSet after = space.range(Field::sourcePort, 1, 9) & space.withPorts();
   EXPECT_TRUE(space.contains(after, parsePacket("tcp 1.2.3.4:9 > 5.6.7.8:1")));
   EXPECT_FALSE(space.contains(after, parsePacket("tcp 1.2.3.4:10 > 5.6.7.8:1")));
}

TEST(Limit, aQuestionHasItsTime) {
   PacketSpace space{{.firstNodes = 20'000, .mostNodes = 1U << 23, .seconds = 0.01}};
   for (int question = 0; question < 2; ++question) {
      space.beginQuestion();
      try {
         growBeyondBounds(space);
         FAIL() << "no limit was reached";
      } catch (const LimitReached& limit) {
         EXPECT_TRUE(limit.timeIsUp());
         EXPECT_STREQ(limit.what(), "the time for this question is up");
      }
      EXPECT_THROW(space.range(Field::sourcePort, 1, 9), LimitReached);
   }
}

TEST(Limit, thereIsOneSpaceAtATime) {
   PacketSet outlives;
   {
      const PacketSpace space{small};
      outlives = space.everything();
      EXPECT_THROW(PacketSpace{small}, std::logic_error);
   }
   const PacketSpace space{small};
   outlives = space.everything();
   EXPECT_EQ(outlives, space.everything());
}

TEST(Limit, tooFewNodesForTheBitsAreToldAtOnce) {
   const std::size_t few = PacketSpace::fewestNodes;
   EXPECT_THROW((PacketSpace{{.firstNodes = few - 1, .mostNodes = few}}), std::logic_error);
   EXPECT_THROW((PacketSpace{{.firstNodes = few, .mostNodes = few - 1}}), std::logic_error);
   EXPECT_NO_THROW((PacketSpace{{.firstNodes = few, .mostNodes = few}}));
   EXPECT_NO_THROW((PacketSpace{small}));
}

// ---- Regions ----

class RegionsOfSmallWorld : public testing::TestWithParam<Draw> {};

// The region, the set and the filter agree about every packet; the packet that two classes have in
// common exists exactly when there is one.
TEST_P(RegionsOfSmallWorld, areWhatTheFiltersTake) {
   const Draw& draw = GetParam();
   const std::vector<Packet> packets = allPackets(draw.family);
   PacketSpace space{small};
   Random random{11};
   std::size_t meetings = 0;
   for (int round = 0; round < 80; ++round) {
      const Policy::Policy policy = randomPolicy(random, draw);
      for (const bool asBuilt : {false, true}) {
         const auto classes = classRegions(policy, {draw.family, draw.tcpFlags},
                                           asBuilt ? Reading::built : Reading::meant);
         std::vector<std::vector<bool>> taken;
         for (const ClassRegions& each : classes) {
            const PacketSet set = setOf(space, each.regions);
            std::vector<bool>& mine = taken.emplace_back();
            for (const Packet& packet : packets) {
               mine.push_back(takes(*each.which, packet, draw, asBuilt));
               ASSERT_EQ(contains(each.regions, packet), mine.back()) << printPacket(packet);
               ASSERT_EQ(space.contains(set, packet), mine.back()) << printPacket(packet);
            }
         }
         for (std::size_t a = 0; a < classes.size(); ++a) {
            for (std::size_t b = 0; b < classes.size(); ++b) {
               bool meet = false;
               for (std::size_t i = 0; i < packets.size(); ++i) {
                  meet = meet || (taken[a][i] && taken[b][i]);
               }
               const auto packet =
                     commonPacket(classes[a].regions, classes[b].regions, draw.family);
               ASSERT_EQ(packet.has_value(), meet);
               if (packet) {
                  ++meetings;
                  EXPECT_TRUE(takes(*classes[a].which, *packet, draw, asBuilt));
                  EXPECT_TRUE(takes(*classes[b].which, *packet, draw, asBuilt));
                  EXPECT_EQ(parsePacket(printPacket(*packet)), *packet);
               }
            }
         }
      }
   }
   EXPECT_GT(meetings, 300U);
}

TEST_P(RegionsOfSmallWorld, residuesAreTheFirstMatches) {
   const Draw& draw = GetParam();
   const std::vector<Packet> packets = allPackets(draw.family);
   PacketSpace space{small};
   Random random{12};
   for (int round = 0; round < 80; ++round) {
      const Policy::Policy policy = randomPolicy(random, draw);
      const auto classes = classRegions(policy, {draw.family, draw.tcpFlags}, Reading::built);
      Residues residues{space, classes, draw.family};
      for (std::size_t place = 0; place < classes.size(); ++place) {
         const PacketSet left = residues.left(residues.alone(place), place);
         bool any = false;
         for (const Packet& packet : packets) {
            const bool first = firstClass(policy, packet, draw, true) == place;
            any = any || first;
            ASSERT_EQ(space.contains(left, packet), first) << printPacket(packet);
         }
         EXPECT_EQ(left.empty(), !any);
      }
   }
}

INSTANTIATE_TEST_SUITE_P(PacketSet, RegionsOfSmallWorld,
                         testing::Values(Draw{Family::ipv4, true}, Draw{Family::ipv6, true},
                                         Draw{Family::ipv4, false}));

} // namespace
