// The text of packets: what it says, and that what it does not say is refused with its place.
#include "Kiv/Exception.h"
#include "postcard/packets/Packet.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <string>
#include <vector>

namespace {

using Orlix::AddressFamily;
using Postcard::Packets::Packet;
using Postcard::Packets::parsePacket;
using Postcard::Packets::printPacket;

TEST(PacketText, saysEveryField) {
   const Packet packet =
         parsePacket("tcp 10.1.2.3:1025 > 192.0.2.1:443 flags=syn,ack checksum=0x1200 id=7 dscp=46 "
                     "interface=Ethernet1");
   EXPECT_EQ(packet.family, AddressFamily::ipv4);
   EXPECT_EQ(Postcard::Packets::printAddress(packet.sourceAddress()), "10.1.2.3");
   EXPECT_EQ(Postcard::Packets::printAddress(packet.destinationAddress()), "192.0.2.1");
   EXPECT_EQ(packet.protocol, 6);
   EXPECT_EQ(packet.sourcePort, 1025);
   EXPECT_EQ(packet.destinationPort, 443);
   EXPECT_EQ(packet.tcpFlags, 0x12);
   EXPECT_EQ(packet.checksum, 0x1200);
   EXPECT_EQ(packet.identification, 7);
   EXPECT_EQ(packet.dscp, 46);
   EXPECT_EQ(packet.intf, Orlix::IntfId{"Ethernet1"});
   EXPECT_FALSE(packet.laterFragment);
}

TEST(PacketText, whatAPacketHasAndTheTextLeavesOutIsZero) {
   const Packet tcp = parsePacket("tcp 10.1.2.3:0 > 192.0.2.1:65535");
   EXPECT_EQ(tcp.tcpFlags, 0);
   EXPECT_EQ(tcp.checksum, 0);
   EXPECT_EQ(tcp.identification, 0);
   const Packet udp = parsePacket("udp [2001:db8::1]:53 > [::ffff:1.2.3.4]:1024");
   EXPECT_EQ(udp.tcpFlags, std::nullopt);
   EXPECT_EQ(udp.checksum, 0);
   EXPECT_EQ(udp.identification, std::nullopt);
}

TEST(PacketText, whatAPacketDoesNotHaveIsAbsent) {
   for (const char* text : {"icmp 10.1.2.3 > 192.0.2.1", "tcp 10.1.2.3 > 192.0.2.1 fragment",
                            "47 10.1.2.3 > 192.0.2.1 fragment"}) {
      const Packet packet = parsePacket(text);
      EXPECT_EQ(packet.sourcePort, std::nullopt) << text;
      EXPECT_EQ(packet.destinationPort, std::nullopt) << text;
      EXPECT_EQ(packet.tcpFlags, std::nullopt) << text;
      EXPECT_EQ(packet.checksum, std::nullopt) << text;
      EXPECT_EQ(packet.identification, 0) << text;
   }
}

// One text per packet, whatever way it was written.
TEST(PacketText, isPrintedInOneWay) {
   const std::vector<std::pair<std::string, std::string>> table = {
         {"6 10.1.2.3:1 > 192.0.2.1:2 flags=none", "tcp 10.1.2.3:1 > 192.0.2.1:2"},
         {"tcp 10.1.2.3:1 > 192.0.2.1:2 flags=0x12", "tcp 10.1.2.3:1 > 192.0.2.1:2 flags=syn,ack"},
         {"tcp 1.2.3.4:0x50>5.6.7.8:2  dscp=3\tflags=255 ",
          "tcp 1.2.3.4:80 > 5.6.7.8:2 flags=fin,syn,rst,psh,ack,urg,ece,cwr dscp=3"},
         {"udp [2001:DB8:0::1]:53 > [::]:1 checksum=4660",
          "udp [2001:db8::1]:53 > [::]:1 checksum=0x1234"},
         {"58 [::1] > [::2]", "icmpv6 [::1] > [::2]"},
         {"255 1.2.3.4 > 5.6.7.8 id=0xFFFF fragment", "255 1.2.3.4 > 5.6.7.8 id=0xffff fragment"},
         {"udp 1.2.3.4:0>5.6.7.8 cut id=1", "udp 1.2.3.4:0 > 5.6.7.8 id=0x0001 cut"},
         {"tcp 1.2.3.4:1 > 5.6.7.8:2 cut flags=0", "tcp 1.2.3.4:1 > 5.6.7.8:2 flags=none cut"},
   };
   for (const auto& [text, printed] : table) {
      EXPECT_EQ(printPacket(parsePacket(text)), printed) << text;
   }
}

TEST(PacketText, whatTheTextLeavesOutIsListed) {
   const std::vector<std::pair<std::string, std::vector<std::string_view>>> table = {
         {"tcp 1.2.3.4:1 > 5.6.7.8:2", {"flags", "checksum", "id", "dscp"}},
         {"tcp 1.2.3.4:1 > 5.6.7.8:2 dscp=0 checksum=0", {"flags", "id"}},
         {"tcp 1.2.3.4:1 > 5.6.7.8:2 dscp=0 checksum=0 flags=none id=0", {}},
         {"udp [::1]:1 > [::2]:2", {"checksum", "dscp"}},
         {"icmp 1.2.3.4 > 5.6.7.8", {"id", "dscp"}},
         {"tcp 1.2.3.4 > 5.6.7.8 fragment", {"id", "dscp"}},
         {"tcp 1.2.3.4 > 5.6.7.8 cut", {"id", "dscp"}},
   };
   for (const auto& [text, zeros] : table) {
      EXPECT_EQ(Postcard::Packets::parsePacketAndZeros(text).zeros, zeros) << text;
   }
}

TEST(PacketText, aHeaderThatIsCutLacksItsEnd) {
   const Packet none = parsePacket("tcp 1.2.3.4 > 5.6.7.8 cut");
   EXPECT_TRUE(none.headerIsCut());
   EXPECT_EQ(none.sourcePort, std::nullopt);
   const Packet ports = parsePacket("tcp 1.2.3.4:1 > 5.6.7.8:2 cut");
   EXPECT_EQ(ports.destinationPort, 2);
   EXPECT_EQ(ports.tcpFlags, std::nullopt);
   const Packet flags = parsePacket("tcp 1.2.3.4:1 > 5.6.7.8:2 cut flags=none");
   EXPECT_EQ(flags.tcpFlags, 0);
   EXPECT_EQ(flags.checksum, std::nullopt);
   for (const char* whole :
        {"tcp 1.2.3.4:1 > 5.6.7.8:2", "icmp 1.2.3.4 > 5.6.7.8", "tcp 1.2.3.4 > 5.6.7.8 fragment"}) {
      EXPECT_FALSE(parsePacket(whole).headerIsCut()) << whole;
   }
}

const std::string noBeginning =
      "a header that is cut has no checksum, and no field behind one that it lacks: source port, "
      "destination port, flags ";

TEST(PacketText, whatIsWrongIsSaidWithItsPlace) {
   const std::vector<std::pair<std::string, std::string>> table = {
         {"", "expected a protocol: tcp, udp, icmp, icmpv6 or a number at position 0"},
         {"sctp 1.2.3.4 > 5.6.7.8",
          "expected a protocol: tcp, udp, icmp, icmpv6 or a number at position 0"},
         {"256 1.2.3.4 > 5.6.7.8", "expected a number from 0 to 255 at position 0"},
         {"tcpx 1.2.3.4:1 > 5.6.7.8:2", "expected a blank at position 3"},
         {"tcp 1.2.3.4:65536 > 5.6.7.8:2", "expected a number from 0 to 65535 at position 12"},
         {"tcp 1.2.3.4:0x10000 > 5.6.7.8:2", "expected a number up to 0xffff at position 18"},
         {"tcp 1.2.3.4:0x > 5.6.7.8:2", "expected a hexadecimal digit at position 14"},
         {"tcp 1.2.3.4:1 < 5.6.7.8:2", "expected \">\" at position 14"},
         {"tcp 1.2.3.4:1 > [::1]:2",
          "expected an address of the same family as the source at position 17"},
         {"tcp [1.2.3.4]:1 > 5.6.7.8:2", "expected an IPv6 address in the brackets at position 5"},
         {"udp ::1 > ::2", "expected brackets around an IPv6 address at position 4"},
         {"tcp [::1:1 > [::2]:1", "expected \"]\" at position 10"},
         {"tcp 1.2.3.4 > 5.6.7.8", "expected ADDRESS:PORT on both sides; only a later 'fragment' "
                                   "or a header that is 'cut' has no port at position 21"},
         {"tcp 1.2.3.4:1 > 5.6.7.8", "expected ADDRESS:PORT on both sides; only a later 'fragment' "
                                     "or a header that is 'cut' has no port at position 23"},
         {"icmp 1.2.3.4 > 5.6.7.8 cut", "only the header of TCP or UDP can be cut at position 23"},
         {"tcp 1.2.3.4 > 5.6.7.8 cut fragment",
          "a later fragment has neither ports nor flags nor checksum at position 34"},
         {"udp 1.2.3.4:1 > 5.6.7.8:2 cut checksum=1", noBeginning + "at position 40"},
         {"tcp 1.2.3.4 > 5.6.7.8:2 cut", noBeginning + "at position 27"},
         {"tcp 1.2.3.4:1 > 5.6.7.8 flags=syn cut", noBeginning + "at position 37"},
         {"tcp 1.2.3.4:1 > 5.6.7.8:2 fragment",
          "a later fragment has neither ports nor flags nor checksum at position 34"},
         {"icmp 1.2.3.4:1 > 5.6.7.8", "expected \">\" at position 12"},
         {"udp 1.2.3.4:1 > 5.6.7.8:2 flags=syn", "only TCP has flags at position 26"},
         {"tcp 1.2.3.4:1 > 5.6.7.8:2 flags=sin",
          "expected fin, syn, rst, psh, ack, urg, ece, cwr, none or a number at position 32"},
         {"tcp 1.2.3.4:1 > 5.6.7.8:2 flags=syn,",
          "expected fin, syn, rst, psh, ack, urg, ece, cwr, none or a number at position 36"},
         {"tcp 1.2.3.4:1 > 5.6.7.8:2 flags=256", "expected a number from 0 to 255 at position 32"},
         {"tcp 1.2.3.4:1 > 5.6.7.8:2 flags=synack", "expected a blank at position 35"},
         {"icmp 1.2.3.4 > 5.6.7.8 checksum=1",
          "only TCP and UDP have a checksum to match at position 23"},
         {"udp [::1]:1 > [::2]:2 id=1", "only IPv4 has an identification at position 22"},
         {"udp 1.2.3.4:1 > 5.6.7.8:2 dscp=64", "expected a number from 0 to 63 at position 31"},
         {"udp 1.2.3.4:1 > 5.6.7.8:2 interface= dscp=1",
          "expected the name of an interface at position 36"},
         {"udp 1.2.3.4:1 > 5.6.7.8:2 dscp=1 dscp=1",
          "'dscp=' stands here for the second time at position 33"},
         {"udp 1.2.3.4:1 > 5.6.7.8:2 ttl=1",
          "expected flags=, checksum=, id=, dscp=, interface=, fragment or cut at position 26"},
   };
   for (const auto& [text, what] : table) {
      try {
         parsePacket(text);
         ADD_FAILURE() << "accepted: " << text;
      } catch (const Kiv::ParseError& error) {
         EXPECT_EQ(error.what(), what) << text;
      }
   }
}

Packet anyPacket() {
   Packet packet;
   packet.protocol = *rc::gen::element<U8>(0, 1, 6, 17, 58, 255);
   const bool ipv4 = *rc::gen::arbitrary<bool>();
   packet.family = ipv4 ? AddressFamily::ipv4 : AddressFamily::ipv6;
   for (std::size_t at = 0; at < Orlix::addressSize(packet.family); ++at) {
      packet.source[at] = *rc::gen::element<U8>(0, 1, 0xff);
      packet.destination[at] = *rc::gen::element<U8>(0, 0x20);
   }
   packet.laterFragment = *rc::gen::arbitrary<bool>();
   const bool tcp = packet.protocol == 6;
   if (!packet.laterFragment && (tcp || packet.protocol == 17)) {
      // How many of the fields are there; with less than four, the header is cut.
      const auto fields = *rc::gen::weightedElement<int>({{1, 0}, {1, 1}, {1, 2}, {1, 3}, {4, 4}});
      const auto field = [&](int at) {
         return fields > at ? std::optional<U16>{*rc::gen::arbitrary<U16>()} : std::nullopt;
      };
      packet.sourcePort = field(0);
      packet.destinationPort = field(1);
      packet.checksum = field(3);
      if (tcp && fields > 2) {
         packet.tcpFlags = *rc::gen::arbitrary<U8>();
      }
   }
   packet.identification = ipv4 ? std::optional<U16>{*rc::gen::arbitrary<U16>()} : std::nullopt;
   packet.dscp = *rc::gen::inRange<U8>(0, 64);
   packet.intf = *rc::gen::element(Orlix::IntfId{}, Orlix::IntfId{"Ethernet1/2"});
   return packet;
}

RC_GTEST_PROP(PacketText, isReadBackToAnEqualPacket, ()) {
   const Packet packet = anyPacket();
   const std::string text = printPacket(packet);
   RC_LOG() << text;
   RC_ASSERT(parsePacket(text) == packet);
}

RC_GTEST_PROP(PacketText, anyTextIsReadOrRefused, ()) {
   const auto pieces = *rc::gen::container<std::vector<std::string>>(rc::gen::element<std::string>(
         "tcp", "udp ", " ", "1.2.3.4", ":", "80", ">", "[::1]", "[", "]", "flags=", "syn", ",",
         "id=0x", "fragment", " cut", "\xff", "0"));
   std::string text;
   for (const std::string& piece : pieces) {
      text += piece;
   }
   try {
      RC_ASSERT(parsePacket(printPacket(parsePacket(text))) == parsePacket(text));
   } catch (const Kiv::ParseError& error) {
      RC_ASSERT(error.position() <= text.size());
   }
}

} // namespace
