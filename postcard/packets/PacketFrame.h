// `decodeFrame`: finds in the bytes of a captured frame the fields that hardware would match on.
// Relies on the packet model only. Reads no byte outside the frame, whatever lengths it states.
#pragma once

#include "postcard/packets/Packet.h"

#include <span>
#include <string_view>
#include <variant>

namespace Postcard::Packets {

// The header that a frame begins with.
enum class LinkType : U8 {
   ethernet,     // IEEE 802.3, VLAN tags (also stacked ones) included
   rawIp,        // no link header; an IP header of either version
   linuxCooked,  // the pseudo header of "any" interface captures, first version
   linuxCooked2, // the same, second version
};

// Why no ACL looks at a frame.
enum class Undecodable : U8 {
   linkHeaderTruncated,
   notIp,              // ARP, LLDP, MPLS and the like
   ipHeaderTruncated,  // or an IPv6 extension header
   ipHeaderBad,        // wrong version, impossible lengths
   transportTruncated, // the TCP or UDP header, as far as it is looked at
};
inline constexpr std::size_t undecodableReasons = 5;

// The reason in words, such as "IP header truncated".
std::string_view undecodableText(Undecodable reason);

// The packet in the frame, or why there is none. The packet has no interface, because a capture
// does not name the switch's interface that it came in through.
std::variant<Packet, Undecodable> decodeFrame(LinkType linkType, std::span<const U8> frame);

} // namespace Postcard::Packets
