// `Packet`: the fields of a packet that hardware can match on; `parsePacket` and `printPacket`: its
// text.
// Relies on the address text of Orlix. A packet of a capture comes from `PacketFrame.h`.
//
// A field that a packet does not have is absent rather than zero, because a match on an absent
// field fails. A later fragment has neither ports nor flags nor checksum, whatever its bytes look
// like.
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

namespace Postcard::Packets {

// The protocols whose packets have ports.
using Classification::protocolTcp;
using Classification::protocolUdp;

struct Packet {
   Orlix::AddressFamily family = Orlix::AddressFamily::ipv4; // never `none`
   std::array<U8, 16> source{};        // network order; an IPv4 address is the first four bytes
   std::array<U8, 16> destination{};   // the same
   U8 protocol = 0;                    // of the payload, behind all IPv6 extension headers
   std::optional<U16> sourcePort;      // TCP and UDP; absent in a later fragment
   std::optional<U16> destinationPort; // the same
   std::optional<U8> tcpFlags;         // TCP; bits as in `Classification::TcpFlags`
   std::optional<U16> checksum;        // of the TCP or UDP header
   std::optional<U16> identification;  // IPv4, in every fragment
   U8 dscp = 0;                        // 0..63
   Orlix::IntfId intf;                 // where it came in; no interface: not known
   bool laterFragment = false;         // a fragment that does not begin the datagram

   std::span<const U8> sourceAddress() const;      // 4 or 16 bytes
   std::span<const U8> destinationAddress() const; // the same

   friend bool operator==(const Packet&, const Packet&) = default;
};

// Reads a packet as people write it:
//
//   tcp 10.1.2.3:1025 > 192.0.2.1:443 flags=syn,ack checksum=0x1200 id=7 dscp=46
//   interface=Ethernet1 udp [2001:db8::1]:53 > [2001:db8::2]:1024 icmp 10.1.2.3 > 192.0.2.1
//   tcp 10.1.2.3 > 192.0.2.1 fragment
//
// First the protocol (tcp, udp, icmp, icmpv6, or its number), then the addresses, both of one
// family; TCP and UDP have ports, except in a later `fragment`. The rest may stand in any order,
// each once. Fields that the packet has and the text leaves out are 0. Numbers are decimal, or
// hexadecimal with 0x. Throws Kiv::ParseError with the reason and the place.
Packet parsePacket(std::string_view text);

// The text of a packet, with every field that is not 0; `parsePacket` reads it back to an equal
// packet.
std::string printPacket(const Packet& packet);

// An address of 4 or 16 bytes, in network order, as a dotted quad or as RFC 5952 writes it.
std::string printAddress(std::span<const U8> address);

// "tcp", "udp", "icmp", "icmpv6", or the number.
std::string protocolName(U8 protocol);

// The names of the flags that are set, joined by commas, lowest bit first; "none" for 0.
std::string tcpFlagNames(U8 flags);

} // namespace Postcard::Packets
