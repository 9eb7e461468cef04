// `decodeFrame`: finds in the bytes of a captured frame what hardware would match on. Relies on
// nothing; reads no byte outside the frame, whatever the frame claims.
#pragma once

#include "postcard/packets/Packet.h"

#include <span>
#include <string_view>
#include <variant>

namespace Postcard::Packets {

// What a frame begins with.
enum class LinkType : U8 {
   ethernet,     // IEEE 802.3, VLAN tags (also stacked ones) included
   rawIp,        // an IP header at once, either version
   linuxCooked,  // the pseudo header of "any" interface captures, first version
   linuxCooked2, // the same, second version
};

// Why a frame is no packet for an ACL.
enum class Undecodable : U8 {
   linkHeaderTruncated,
   notIp,              // ARP, LLDP, MPLS and the like
   ipHeaderTruncated,  // or an IPv6 extension header
   ipHeaderBad,        // wrong version, impossible lengths
   transportTruncated, // the TCP or UDP header, as far as it is looked at
};
inline constexpr std::size_t undecodableReasons = 5;

// In words, such as "IP header truncated".
std::string_view undecodableText(Undecodable reason);

// The packet in the frame, or why there is none. The packet has no interface: a capture does not
// say through which one of ours it came.
std::variant<Packet, Undecodable> decodeFrame(LinkType linkType, std::span<const U8> frame);

} // namespace Postcard::Packets
