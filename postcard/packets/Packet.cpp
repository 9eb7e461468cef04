#include "postcard/packets/Packet.h"

#include "Orlix/IpAddressText.h"

#include <fmt/format.h>

namespace Postcard::Packets {

namespace {

// One end of a packet. Brackets keep the colons of an IPv6 address apart from that of the port;
// they stand without a port too, so that an address is always written the same way.
std::string endText(std::span<const U8> address, const std::optional<U16>& port) {
   const std::string text = printAddress(address);
   if (address.size() == 4) {
      return port ? fmt::format("{}:{}", text, *port) : text;
   }
   return port ? fmt::format("[{}]:{}", text, *port) : fmt::format("[{}]", text);
}

} // namespace

std::span<const U8> Packet::sourceAddress() const {
   return std::span{source}.first(Orlix::addressSize(family));
}

std::span<const U8> Packet::destinationAddress() const {
   return std::span{destination}.first(Orlix::addressSize(family));
}

std::string printAddress(std::span<const U8> address) {
   std::string text;
   Orlix::printAddress(text, address);
   return text;
}

std::string protocolName(U8 protocol) {
   const std::string_view word = Classification::protocolWord(protocol);
   return word.empty() ? std::to_string(protocol) : std::string{word};
}

std::string tcpFlagNames(U8 flags) {
   std::string names;
   for (const auto& [word, bit] : Classification::tcpFlagWords) {
      if ((flags & bit) != 0) {
         names += names.empty() ? "" : ",";
         names += word;
      }
   }
   return names.empty() ? "none" : names;
}

// Absent fields and fields that are 0 are left out alike: `parsePacket` decides by protocol and
// family which fields a packet has. Where a header is cut off, only the text can tell.
std::string printPacket(const Packet& packet) {
   std::string text = fmt::format("{} {} > {}", protocolName(packet.protocol),
                                  endText(packet.sourceAddress(), packet.sourcePort),
                                  endText(packet.destinationAddress(), packet.destinationPort));
   const auto add = [&text](const char* key, const std::string& value) {
      text += fmt::format(" {}={}", key, value);
   };
   const bool cut = packet.headerIsCut();
   if (packet.tcpFlags && (cut || *packet.tcpFlags != 0)) {
      add("flags", tcpFlagNames(*packet.tcpFlags));
   }
   if (packet.checksum.value_or(0) != 0) {
      add("checksum", fmt::format("0x{:04x}", *packet.checksum));
   }
   if (packet.identification.value_or(0) != 0) {
      add("id", fmt::format("0x{:04x}", *packet.identification));
   }
   if (packet.dscp != 0) {
      add("dscp", std::to_string(packet.dscp));
   }
   if (packet.intf != Orlix::IntfId{}) {
      add("interface", packet.intf.stringValue().str());
   }
   return text + (packet.laterFragment ? " fragment" : cut ? " cut" : "");
}

} // namespace Postcard::Packets
