#include "postcard/classifier/PacketWords.h"

namespace Postcard::Classifier {

using Orlix::AddressFamily;

U64 bigEndian(std::span<const U8> bytes) {
   U64 value = 0;
   for (const U8 byte : bytes) {
      value = value << 8 | byte;
   }
   return value;
}

namespace {

void layOutAddresses(const Packets::Packet& packet, PacketWords& key) {
   if (packet.family == AddressFamily::ipv4) {
      key[0] = bigEndian(packet.sourceAddress()) << 32 | bigEndian(packet.destinationAddress());
      return;
   }
   key[0] = bigEndian(std::span{packet.source}.first(8));
   key[1] = bigEndian(std::span{packet.source}.last(8));
   key[2] = bigEndian(std::span{packet.destination}.first(8));
   key[3] = bigEndian(std::span{packet.destination}.last(8));
}

} // namespace

PacketWords wordsOf(const Packets::Packet& packet) {
   PacketWords key{};
   layOutAddresses(packet, key);
   U64& ports = key[portWord(packet.family)];
   if (packet.sourcePort && packet.destinationPort) {
      ports |= hasPorts | U64{*packet.sourcePort} << sourcePortAt |
               U64{*packet.destinationPort} << destinationPortAt;
   }
   if (packet.tcpFlags) {
      ports |= hasTcpFlags | U64{*packet.tcpFlags} << tcpFlagsAt;
   }
   U64& sample = key[sampleWord(packet.family)];
   if (packet.checksum) {
      sample |= hasChecksum | U64{*packet.checksum} << checksumAt;
   }
   if (packet.identification) {
      sample |= hasIdentification | U64{*packet.identification} << identificationAt;
   }
   return key;
}

} // namespace Postcard::Classifier
