// `decodeFrame`: reads from the bytes of a captured frame the fields that hardware matches on.
// Relies on the packet model only. Reads no byte outside the frame, whatever lengths its headers
// state, so hostile captures are safe to decode. Checksums are taken as they are, never verified.
#pragma once

#include "postcard/packets/Packet.h"

#include <span>
#include <string_view>
#include <variant>

namespace Postcard::Packets {

// The header that a frame begins with.
enum class LinkType : U8 {
   ethernet,     // Ethernet II; VLAN tags (IEEE 802.1Q, also stacked) may follow
   rawIp,        // no link header: an IP header of either version
   linuxCooked,  // the pseudo header of captures of the Linux interface "any": LINKTYPE_LINUX_SLL
   linuxCooked2, // its second version: LINKTYPE_LINUX_SLL2
};

// Why a frame gives no packet, so that no ACL is asked about it.
enum class Undecodable : U8 {
   linkHeaderTruncated, // the frame ends inside its link header or a VLAN tag
   notIp,               // the EtherType is neither that of IPv4 nor of IPv6: ARP, LLDP, MPLS, …
   ipHeaderTruncated,   // the frame ends inside the IP header or an IPv6 extension header
   ipHeaderBad,         // the IP header has another version, or lengths that cannot be
};
// The number of reasons, for tables indexed by them.
inline constexpr std::size_t undecodableReasons = 4;

// The reason in words, such as "IP header truncated".
std::string_view undecodableText(Undecodable reason);

// The packet in `frame`, or why there is none. `frame` may end before the packet does, as captures
// with a snapshot length have it, as long as the IP headers are complete. Of a TCP or UDP header
// that is cut off, by the end of the frame or by a length in the IP header, the packet has the
// fields that are there as a whole (`Packet::headerIsCut`). The packet has no interface, because a
// capture does not name the interface of the switch. The result does not refer to `frame`.
std::variant<Packet, Undecodable> decodeFrame(LinkType linkType, std::span<const U8> frame);

} // namespace Postcard::Packets
