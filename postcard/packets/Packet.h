// `Packet`: the fields of a packet that hardware can match on. `parsePacket` and `printPacket`: its
// text. Relies on the address text of Orlix. `PacketFrame.h` makes packets from captured bytes.
//
// A field that a packet does not have is absent rather than zero, because a match on an absent
// field fails. A later fragment has neither ports nor flags nor checksum: its bytes continue the
// payload where those of the first fragment end. A capture may cut packets off after some bytes;
// what the cut-off part of a TCP or UDP header would have held is absent as well.
#pragma once

#include "Classification/ProtocolNumbers.h"
#include "Orlix/AddressFamily.h"
#include "Orlix/IntfId.h"
#include "Pello/Types.h"

#include <array>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Postcard::Packets {

// The protocols whose packets have ports.
using Classification::protocolTcp;
using Classification::protocolUdp;

// `parsePacket` and `decodeFrame` make consistent packets. Fields that `family`, `protocol` or
// `laterFragment` exclude are absent. All others but the interface are present, except in a TCP or
// UDP header that is cut off: there the checksum is absent, and perhaps fields before it, the later
// ones first.
struct Packet {
   Orlix::AddressFamily family = Orlix::AddressFamily::ipv4; // never `none`
   std::array<U8, 16> source{};      // network order; an IPv4 address is the first four bytes
   std::array<U8, 16> destination{}; // the same
   // IP protocol number (IANA) of the payload, behind all IPv6 extension headers. In a later
   // fragment over IPv6 it is the number in the fragment header, which may be an extension header.
   U8 protocol = 0;
   std::optional<U16> sourcePort;      // TCP and UDP; absent in a later fragment
   std::optional<U16> destinationPort; // the same
   std::optional<U8> tcpFlags;         // TCP; bits as in `Classification::tcpFlagWords`
   std::optional<U16> checksum;        // TCP and UDP; 0 for UDP means none (RFC 768)
   std::optional<U16> identification;  // IPv4 (RFC 791), in every fragment; absent in IPv6
   U8 dscp = 0;                        // 0..63 (RFC 2474)
   Orlix::IntfId intf;                 // where it came in; no interface: not known
   bool laterFragment = false;         // a fragment that does not begin the datagram

   // The bytes of an address that `family` uses, 4 or 16. Valid as long as the packet.
   std::span<const U8> sourceAddress() const;
   std::span<const U8> destinationAddress() const;
   // Whether the protocol has ports, TCP or UDP; a later fragment is of its protocol as well.
   bool isTcpOrUdp() const { return protocol == protocolTcp || protocol == protocolUdp; }
   // Whether the TCP or UDP header is cut off before the end of its checksum.
   bool headerIsCut() const { return isTcpOrUdp() && !laterFragment && !checksum; }

   friend bool operator==(const Packet&, const Packet&) = default;
};

// Reads a packet as people write it:
//
//   tcp 10.1.2.3:1025 > 192.0.2.1:443 flags=syn,ack checksum=0x1200 id=7 dscp=46
//   udp [2001:db8::1]:53 > [2001:db8::2]:1024 interface=Ethernet1
//   icmp 10.1.2.3 > 192.0.2.1
//   tcp 10.1.2.3 > 192.0.2.1 fragment
//   tcp 10.1.2.3:1025 > 192.0.2.1:443 cut
//
// First the protocol (tcp, udp, icmp, icmpv6, or its number), then the two addresses, both of one
// family, an IPv6 address in brackets. TCP and UDP have ports, except in a later `fragment`. The
// other fields may follow in any order, each at most once. A field that the packet has and the text
// leaves out is 0; an interface that is left out is not known. With the word `cut`, ports, flags
// and checksum that are left out are absent instead. Numbers are decimal, or hexadecimal with 0x.
// Throws Kiv::ParseError with the reason and the position in `text`.
Packet parsePacket(std::string_view text);

// A packet, and which of its fields are 0 only because its text leaves them out.
struct ParsedPacket {
   Packet packet;
   // The keys of these fields in the order "flags", "checksum", "id", "dscp". Literals.
   std::vector<std::string_view> zeros;
};

// The same as `parsePacket`, with what the text leaves out.
ParsedPacket parsePacketAndZeros(std::string_view text);

// The text of a packet, with its addresses and ports, and every other field that is not 0. Of a
// header that is cut off it says every field that is there. `parsePacket` reads the text back to an
// equal packet, unless the name of the interface holds a blank.
std::string printPacket(const Packet& packet);

// An address of 4 or 16 bytes, in network order, as a dotted quad or as RFC 5952 writes it.
std::string printAddress(std::span<const U8> address);

// "tcp", "udp", "icmp", "icmpv6", or the number in decimal.
std::string protocolName(U8 protocol);

// The names of the flags that are set, joined by commas, lowest bit first; "none" for 0.
std::string tcpFlagNames(U8 flags);

} // namespace Postcard::Packets
