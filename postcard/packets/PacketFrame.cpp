#include "postcard/packets/PacketFrame.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace Postcard::Packets {

namespace {

using Bytes = std::span<const U8>;
using Result = std::variant<Packet, Undecodable>;

constexpr U16 etherTypeIpv4 = 0x0800;
constexpr U16 etherTypeIpv6 = 0x86dd;

// The 16 bits at `at`, in network order. The caller has checked that they are there.
U16 word(Bytes bytes, std::size_t at) {
   return static_cast<U16>(bytes[at] << 8 | bytes[at + 1]);
}

// The customer tag (IEEE 802.1Q), the service tag (802.1ad), and the two numbers that stacked tags
// had before 802.1ad.
bool isVlanTag(U16 etherType) {
   return etherType == 0x8100 || etherType == 0x88a8 || etherType == 0x9100 || etherType == 0x9200;
}

// ---- Transport ----

// The 16 bits at `at`, in network order; absent when the bytes end before they do.
std::optional<U16> wordIfThere(Bytes bytes, std::size_t at) {
   return bytes.size() < at + 2 ? std::nullopt : std::optional{word(bytes, at)};
}

// TCP: RFC 9293, section 3.1; UDP: RFC 768. `payload` ends where the length in the IP header or the
// captured bytes end, whichever comes first. A snapshot length often ends inside the header, and
// the rules that ask for addresses and protocol alone need none of it.
Packet decodeTransport(Packet packet, Bytes payload) {
   if (packet.laterFragment || !packet.isTcpOrUdp()) {
      return packet;
   }
   const bool isTcp = packet.protocol == protocolTcp;
   packet.sourcePort = wordIfThere(payload, 0);
   packet.destinationPort = wordIfThere(payload, 2);
   packet.checksum = wordIfThere(payload, isTcp ? 16 : 6);
   if (isTcp && payload.size() > 13) {
      packet.tcpFlags = payload[13];
   }
   return packet;
}

// ---- IPv4 ----

// RFC 791. Options are skipped.
Result decodeIpv4(Bytes bytes) {
   if (bytes.size() < 20) {
      return Undecodable::ipHeaderTruncated;
   }
   const std::size_t headerSize = std::size_t{bytes[0] & 0x0fU} * 4U;
   // 0 when the capture was taken before the network card filled it in (segmentation offload).
   const std::size_t totalSize = word(bytes, 2);
   if (bytes[0] >> 4 != 4 || headerSize < 20 || (totalSize != 0 && totalSize < headerSize)) {
      return Undecodable::ipHeaderBad;
   }
   if (bytes.size() < headerSize) {
      return Undecodable::ipHeaderTruncated;
   }
   Packet packet;
   packet.dscp = static_cast<U8>(bytes[1] >> 2);
   packet.identification = word(bytes, 4);
   packet.laterFragment = (word(bytes, 6) & 0x1fffU) != 0; // the fragment offset
   packet.protocol = bytes[9];
   std::ranges::copy(bytes.subspan(12, 4), packet.source.begin());
   std::ranges::copy(bytes.subspan(16, 4), packet.destination.begin());
   const std::size_t end = totalSize == 0 ? bytes.size() : std::min(totalSize, bytes.size());
   return decodeTransport(packet, bytes.first(end).subspan(headerSize));
}

// ---- IPv6 ----

// The extension headers that state their own size: hop-by-hop options, routing, authentication,
// destination options, mobility, HIP and shim6 (IANA, "IPv6 Extension Header Types"). The fragment
// header (44) is not among them, because its size is fixed. ESP (50) is not either: it encrypts
// what follows, so it counts as the payload.
bool isExtension(U8 header) {
   constexpr U8 extensions[] = {0, 43, 51, 60, 135, 139, 140};
   return std::ranges::find(extensions, header) != std::end(extensions);
}

constexpr U8 fragmentHeader = 44;
constexpr U8 authenticationHeader = 51;

// The size in bytes. The second byte of the authentication header counts words of four bytes
// without the first two (RFC 4302, section 2.2); that of the others counts words of eight bytes
// without the first (RFC 8200, section 4; RFC 6564).
std::size_t extensionSize(U8 header, Bytes bytes) {
   if (header == fragmentHeader) {
      return 8;
   }
   return header == authenticationHeader ? (bytes[1] + 2U) * 4U : (bytes[1] + 1U) * 8U;
}

// Walks the extension headers; `packet.protocol` is the number of the first one. Behind the
// fragment header of a later fragment there is payload and no further header (RFC 8200,
// section 4.5).
Result decodeExtensions(Packet packet, Bytes bytes) {
   while (!packet.laterFragment &&
          (packet.protocol == fragmentHeader || isExtension(packet.protocol))) {
      if (bytes.size() < 8 || bytes.size() < extensionSize(packet.protocol, bytes)) {
         return Undecodable::ipHeaderTruncated;
      }
      if (packet.protocol == fragmentHeader) {
         packet.laterFragment = (word(bytes, 2) & 0xfff8U) != 0; // the fragment offset
      }
      const std::size_t size = extensionSize(packet.protocol, bytes);
      packet.protocol = bytes[0];
      bytes = bytes.subspan(size);
   }
   return decodeTransport(packet, bytes);
}

// RFC 8200, section 3. The DSCP is the upper six bits of the traffic class.
Result decodeIpv6(Bytes bytes) {
   constexpr std::size_t headerSize = 40;
   if (bytes.size() < headerSize) {
      return Undecodable::ipHeaderTruncated;
   }
   if (bytes[0] >> 4 != 6) {
      return Undecodable::ipHeaderBad;
   }
   Packet packet;
   packet.family = Orlix::AddressFamily::ipv6;
   packet.dscp = static_cast<U8>(word(bytes, 0) >> 6 & 0x3f);
   packet.protocol = bytes[6];
   std::ranges::copy(bytes.subspan(8, 16), packet.source.begin());
   std::ranges::copy(bytes.subspan(24, 16), packet.destination.begin());
   // 0 in a jumbogram (RFC 2675), or when the network card had yet to fill it in.
   const std::size_t payloadSize = word(bytes, 4);
   const Bytes rest = bytes.subspan(headerSize);
   return decodeExtensions(
         packet, payloadSize == 0 ? rest : rest.first(std::min(payloadSize, rest.size())));
}

// ---- Link ----

Result decodeByVersion(Bytes bytes) {
   if (bytes.empty()) {
      return Undecodable::ipHeaderTruncated;
   }
   switch (bytes[0] >> 4) {
   case 4:
      return decodeIpv4(bytes);
   case 6:
      return decodeIpv6(bytes);
   default:
      return Undecodable::ipHeaderBad;
   }
}

// `bytes` begins behind the EtherType. Tags may be stacked to any depth; each takes four bytes, so
// the loop ends with the frame.
Result decodeByEtherType(U16 etherType, Bytes bytes) {
   while (isVlanTag(etherType)) {
      if (bytes.size() < 4) {
         return Undecodable::linkHeaderTruncated;
      }
      etherType = word(bytes, 2);
      bytes = bytes.subspan(4);
   }
   switch (etherType) {
   case etherTypeIpv4:
      return decodeIpv4(bytes);
   case etherTypeIpv6:
      return decodeIpv6(bytes);
   default:
      return Undecodable::notIp;
   }
}

// A link header of fixed size with the EtherType at a fixed place.
Result decodeLink(Bytes frame, std::size_t headerSize, std::size_t etherTypeAt) {
   if (frame.size() < headerSize) {
      return Undecodable::linkHeaderTruncated;
   }
   return decodeByEtherType(word(frame, etherTypeAt), frame.subspan(headerSize));
}

} // namespace

std::string_view undecodableText(Undecodable reason) {
   switch (reason) {
   case Undecodable::linkHeaderTruncated:
      return "link header truncated";
   case Undecodable::notIp:
      return "not IP";
   case Undecodable::ipHeaderTruncated:
      return "IP header truncated";
   case Undecodable::ipHeaderBad:
      return "IP header malformed";
   }
   return "?"; // not reached: every reason has a case above
}

std::variant<Packet, Undecodable> decodeFrame(LinkType linkType, std::span<const U8> frame) {
   switch (linkType) {
   case LinkType::ethernet:
      return decodeLink(frame, 14, 12);
   case LinkType::linuxCooked:
      return decodeLink(frame, 16, 14);
   case LinkType::linuxCooked2:
      return decodeLink(frame, 20, 0);
   case LinkType::rawIp:
      break;
   }
   return decodeByVersion(frame);
}

} // namespace Postcard::Packets
