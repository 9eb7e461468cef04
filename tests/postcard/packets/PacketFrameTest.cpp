// Frames of captures: every link type and header that is understood, every reason for which a frame
// is not, and that no byte outside the frame is read.
#include "postcard/packets/PacketFrame.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using Postcard::Packets::LinkType;
using Postcard::Packets::Packet;
using Postcard::Packets::Undecodable;
using Bytes = std::vector<U8>;

Bytes operator+(Bytes left, const Bytes& right) {
   left.insert(left.end(), right.begin(), right.end());
   return left;
}

Bytes with(Bytes bytes, std::size_t at, Bytes replaced) {
   std::ranges::copy(replaced, bytes.begin() + static_cast<std::ptrdiff_t>(at));
   return bytes;
}

Bytes beginning(const Bytes& bytes, std::size_t size) {
   return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size)};
}

const Bytes macs(12, 0xaa);
const Bytes tcp = {0x04, 0x01, 0x01, 0xbb, 0, 0, 0,    1,    0, 0,
                   0,    2,    0x50, 0x12, 9, 9, 0x12, 0x34, 0, 0};
const Bytes udp = {0x00, 0x35, 0x04, 0x01, 0, 8, 0xbe, 0xef};

Bytes ipv4(U8 protocol, const Bytes& payload, U16 fragment = 0) {
   const auto size = static_cast<U16>(20 + payload.size());
   return Bytes{0x45,
                0xb8,
                static_cast<U8>(size >> 8),
                static_cast<U8>(size),
                0x0a,
                0x0b,
                static_cast<U8>(fragment >> 8),
                static_cast<U8>(fragment),
                64,
                protocol,
                0,
                0,
                10,
                1,
                2,
                3,
                192,
                0,
                2,
                1} +
          payload;
}

Bytes ipv6(U8 next, const Bytes& payload) {
   const auto size = static_cast<U16>(payload.size());
   return Bytes{0x6b, 0x80, 0, 0, static_cast<U8>(size >> 8), static_cast<U8>(size), next, 64} +
          Bytes{0x20, 1, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1} +
          Bytes{0x20, 1, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2} + payload;
}

const Bytes ethernet4 = macs + Bytes{0x08, 0x00};
const Bytes ethernet6 = macs + Bytes{0x86, 0xdd};

// The packet's text, or the reason, decoded from memory of exactly the frame's size so that a
// sanitizer sees every step outside.
std::string decoded(LinkType linkType, const Bytes& frame) {
   const std::unique_ptr<U8[]> exact{new U8[frame.size()]};
   std::ranges::copy(frame, exact.get());
   const auto result = Postcard::Packets::decodeFrame(linkType, {exact.get(), frame.size()});
   if (const auto* packet = std::get_if<Packet>(&result)) {
      return printPacket(*packet);
   }
   return std::string{undecodableText(std::get<Undecodable>(result))};
}

const std::string tcp4Text =
      "tcp 10.1.2.3:1025 > 192.0.2.1:443 flags=syn,ack checksum=0x1234 id=0x0a0b dscp=46";
const std::string tcp6Text =
      "tcp [2001:db8::1]:1025 > [2001:db8::2]:443 flags=syn,ack checksum=0x1234 dscp=46";
const std::string flags4Text =
      "tcp 10.1.2.3:1025 > 192.0.2.1:443 flags=syn,ack id=0x0a0b dscp=46 cut";
const std::string udp4Text = "udp 10.1.2.3:53 > 192.0.2.1:1025 checksum=0xbeef id=0x0a0b dscp=46";

TEST(PacketFrame, everyLinkType) {
   const Bytes cooked(14, 0);
   const Bytes cooked2 = Bytes{0x86, 0xdd} + Bytes(18, 0);
   EXPECT_EQ(decoded(LinkType::ethernet, ethernet4 + ipv4(6, tcp)), tcp4Text);
   EXPECT_EQ(decoded(LinkType::ethernet, ethernet6 + ipv6(6, tcp)), tcp6Text);
   EXPECT_EQ(decoded(LinkType::rawIp, ipv4(17, udp)), udp4Text);
   EXPECT_EQ(decoded(LinkType::rawIp, ipv6(6, tcp)), tcp6Text);
   EXPECT_EQ(decoded(LinkType::linuxCooked, cooked + Bytes{8, 0} + ipv4(6, tcp)), tcp4Text);
   EXPECT_EQ(decoded(LinkType::linuxCooked2, cooked2 + ipv6(6, tcp)), tcp6Text);
}

TEST(PacketFrame, vlanTagsAreSteppedOver) {
   const Bytes tag = {0x81, 0x00, 0x20, 0x64};
   const Bytes outer = {0x88, 0xa8, 0x00, 0x07};
   const Bytes old = {0x91, 0x00, 0x00, 0x07};
   const Bytes rest = Bytes{8, 0} + ipv4(6, tcp);
   EXPECT_EQ(decoded(LinkType::ethernet, macs + tag + rest), tcp4Text);
   EXPECT_EQ(decoded(LinkType::ethernet, macs + outer + tag + rest), tcp4Text);
   EXPECT_EQ(decoded(LinkType::ethernet, macs + old + outer + tag + rest), tcp4Text);
   EXPECT_EQ(decoded(LinkType::ethernet, macs + outer + tag + Bytes{8, 6} + Bytes(28, 0)),
             "not IP");
   EXPECT_EQ(decoded(LinkType::ethernet, macs + outer + Bytes{0x81, 0, 0}),
             "link header truncated");
}

TEST(PacketFrame, ipv4Headers) {
   const Bytes whole = ipv4(6, tcp);
   const Bytes options = with(ipv4(6, Bytes{1, 1, 1, 1} + tcp), 0, {0x46});
   const std::vector<std::pair<Bytes, std::string>> table = {
         {whole, tcp4Text},
         {options, tcp4Text},
         {whole + Bytes(6, 0xff), tcp4Text},       // padding of a short Ethernet frame
         {with(whole, 2, {0, 0}), tcp4Text},       // total length left to the hardware
         {with(whole, 2, {0xff, 0xff}), tcp4Text}, // captured in part
         {ipv4(1, {8, 0, 0, 0}), "icmp 10.1.2.3 > 192.0.2.1 id=0x0a0b dscp=46"},
         {ipv4(6, tcp, 0x2000), tcp4Text}, // the first fragment has the header
         {ipv4(6, tcp, 0x4000), tcp4Text}, // "don't fragment"
         {ipv4(6, tcp, 0x0001), "tcp 10.1.2.3 > 192.0.2.1 id=0x0a0b dscp=46 fragment"},
         {ipv4(17, {}, 0x3fff), "udp 10.1.2.3 > 192.0.2.1 id=0x0a0b dscp=46 fragment"},
         {{}, "IP header truncated"},
         {Bytes(whole.begin(), whole.begin() + 19), "IP header truncated"},
         {Bytes(options.begin(), options.begin() + 23), "IP header truncated"},
         {with(whole, 0, {0x44}), "IP header malformed"},
         {with(whole, 0, {0x55}), "IP header malformed"},
         {with(whole, 2, {0, 19}), "IP header malformed"},
         // What lies behind the total length is not the packet's.
         {with(whole, 2, {0, 20 + 17}), flags4Text},
         {with(whole, 2, {0, 20}), "tcp 10.1.2.3 > 192.0.2.1 id=0x0a0b dscp=46 cut"},
   };
   for (const auto& [bytes, expected] : table) {
      EXPECT_EQ(decoded(LinkType::rawIp, bytes), expected) << &expected - &table[0].second;
   }
}

// How far a header reaches, and what is there of it.
TEST(PacketFrame, headersThatAreCutOff) {
   const std::string rest = " id=0x0a0b dscp=46 cut";
   const std::vector<std::pair<std::size_t, std::string>> tcpTable = {
         {0, "tcp 10.1.2.3 > 192.0.2.1" + rest},
         {1, "tcp 10.1.2.3 > 192.0.2.1" + rest},
         {2, "tcp 10.1.2.3:1025 > 192.0.2.1" + rest},
         {3, "tcp 10.1.2.3:1025 > 192.0.2.1" + rest},
         {4, "tcp 10.1.2.3:1025 > 192.0.2.1:443" + rest},
         {13, "tcp 10.1.2.3:1025 > 192.0.2.1:443" + rest},
         {14, flags4Text},
         {17, flags4Text},
         {18, tcp4Text}};
   for (const auto& [size, expected] : tcpTable) {
      EXPECT_EQ(decoded(LinkType::rawIp, beginning(ipv4(6, tcp), 20 + size)), expected) << size;
   }
   EXPECT_EQ(decoded(LinkType::rawIp, beginning(ipv4(17, udp), 20 + 4)),
             "udp 10.1.2.3:53 > 192.0.2.1:1025" + rest);
   EXPECT_EQ(decoded(LinkType::rawIp, beginning(ipv4(17, udp), 20 + 7)),
             "udp 10.1.2.3:53 > 192.0.2.1:1025" + rest);
   EXPECT_EQ(decoded(LinkType::rawIp, beginning(ipv4(17, udp), 20 + 8)), udp4Text);
   EXPECT_EQ(decoded(LinkType::rawIp, ipv6(17, {0, 53})),
             "udp [2001:db8::1]:53 > [2001:db8::2] dscp=46 cut");
}

TEST(PacketFrame, ipv6ExtensionHeaders) {
   const Bytes options = {6, 0, 1, 4, 0, 0, 0, 0};
   const Bytes longOptions = Bytes{6, 1} + Bytes(14, 0);
   const Bytes authentication = Bytes{6, 4} + Bytes(22, 0); // in units of four bytes, less two
   const Bytes first = {6, 0, 0, 1, 0, 0, 0, 9};
   const Bytes later = {6, 0, 0, 8, 0, 0, 0, 9};
   const std::string fragment = "tcp [2001:db8::1] > [2001:db8::2] dscp=46 fragment";
   const std::vector<std::pair<Bytes, std::string>> table = {
         {ipv6(0, options + tcp), tcp6Text},
         {ipv6(60, longOptions + tcp), tcp6Text},
         {ipv6(51, authentication + tcp), tcp6Text},
         {ipv6(0, with(options, 0, {43}) + with(options, 0, {51}) + authentication + tcp),
          tcp6Text},
         {ipv6(44, first + tcp), tcp6Text},
         {ipv6(44, later + tcp), fragment},
         {ipv6(44, later), fragment},
         // What a later fragment carries is not a header, even when its number says so.
         {ipv6(44, with(later, 0, {60})), "60 [2001:db8::1] > [2001:db8::2] dscp=46 fragment"},
         {ipv6(58, {128, 0}), "icmpv6 [2001:db8::1] > [2001:db8::2] dscp=46"},
         {ipv6(50, {1, 2, 3}), "50 [2001:db8::1] > [2001:db8::2] dscp=46"},
         {ipv6(59, {}), "59 [2001:db8::1] > [2001:db8::2] dscp=46"},
         {with(ipv6(6, tcp), 4, {0, 0}), tcp6Text}, // a payload length of 0: unknown
         {ipv6(0, Bytes(options.begin(), options.end() - 1)), "IP header truncated"},
         {ipv6(60, Bytes(longOptions.begin(), longOptions.end() - 1)), "IP header truncated"},
         {ipv6(44, {6, 0, 0}), "IP header truncated"},
         {ipv6(0, options), "tcp [2001:db8::1] > [2001:db8::2] dscp=46 cut"},
         {with(ipv6(6, tcp), 4, {0, 17}),
          "tcp [2001:db8::1]:1025 > [2001:db8::2]:443 flags=syn,ack dscp=46 cut"},
         {with(ipv6(6, tcp), 0, {0x5b}), "IP header malformed"},
   };
   for (const auto& [bytes, expected] : table) {
      EXPECT_EQ(decoded(LinkType::ethernet, ethernet6 + bytes), expected);
   }
   const Bytes header = ipv6(59, {});
   EXPECT_EQ(decoded(LinkType::rawIp, Bytes(header.begin(), header.end() - 1)),
             "IP header truncated");
}

TEST(PacketFrame, framesThatAreNotIp) {
   EXPECT_EQ(decoded(LinkType::ethernet, macs + Bytes{8, 6} + Bytes(28, 1)), "not IP");
   EXPECT_EQ(decoded(LinkType::ethernet, macs + Bytes{0x88, 0x47} + Bytes(28, 1)), "not IP");
   EXPECT_EQ(decoded(LinkType::ethernet, macs + Bytes{0, 0x26} + Bytes(38, 0x42)), "not IP");
   EXPECT_EQ(decoded(LinkType::ethernet, macs + Bytes{8}), "link header truncated");
   EXPECT_EQ(decoded(LinkType::ethernet, {}), "link header truncated");
   EXPECT_EQ(decoded(LinkType::linuxCooked, Bytes(15, 0)), "link header truncated");
   EXPECT_EQ(decoded(LinkType::linuxCooked2, Bytes(19, 0)), "link header truncated");
   EXPECT_EQ(decoded(LinkType::rawIp, {0x75, 0, 0}), "IP header malformed");
}

// Every beginning of a good frame decodes to the packet or to a reason; memory is of exact size.
TEST(PacketFrame, everyBeginningOfAFrame) {
   const Bytes later = {6, 0, 0, 1, 0, 0, 0, 9};
   const std::vector<Bytes> frames = {
         macs + Bytes{0x88, 0xa8, 0, 1, 0x81, 0, 0, 2, 8, 0} + ipv4(6, tcp),
         ethernet6 + ipv6(44, with(later, 0, {51}) + Bytes{6, 4} + Bytes(22, 0) + tcp)};
   for (const Bytes& frame : frames) {
      for (std::size_t size = 0; size < frame.size(); ++size) {
         const auto end = frame.begin() + static_cast<std::ptrdiff_t>(size);
         const std::string text = decoded(LinkType::ethernet, Bytes(frame.begin(), end));
         EXPECT_EQ(text.starts_with("tcp"), size + 20 >= frame.size()) << size << text;
         EXPECT_EQ(text.ends_with(" cut"), size + 20 >= frame.size() && size + 2 < frame.size())
               << size << text;
      }
   }
}

RC_GTEST_PROP(PacketFrame, anyBytesAreDecodedOrNot, ()) {
   Bytes frame = *rc::gen::element(
         ethernet4 + ipv4(6, tcp), ethernet6 + ipv6(0, Bytes{44, 0, 1, 4, 0, 0, 0, 0} + tcp),
         macs + Bytes{0x81, 0, 0, 2, 0x86, 0xdd} + ipv6(60, Bytes{6, 1} + Bytes(14, 0) + tcp));
   const auto changes = *rc::gen::container<std::vector<std::pair<std::size_t, U8>>>(
         rc::gen::pair(rc::gen::inRange<std::size_t>(12, frame.size()), rc::gen::arbitrary<U8>()));
   for (const auto& [at, value] : changes) {
      frame[at] = value;
   }
   frame.resize(*rc::gen::inRange<std::size_t>(0, frame.size() + 1));
   for (const LinkType type :
        {LinkType::ethernet, LinkType::rawIp, LinkType::linuxCooked, LinkType::linuxCooked2}) {
      RC_ASSERT(!decoded(type, frame).empty());
   }
}

} // namespace
