#include "postcard/analysis/PacketBits.h"

#include <cstddef>
#include <span>

namespace Postcard::Analysis {

namespace {

// In the order of `Axis`. Both families have 128 bits for an address: bits that no set looks at
// cost nothing, and sets of either family can live in one space.
constexpr std::array<int, 9> widths{8, 128, 128, 1, 16, 16, 8, 16, 16};

constexpr std::array<BitRange, widths.size()> allRanges() {
   std::array<BitRange, widths.size()> ranges{};
   int at = 0;
   for (std::size_t axis = 0; axis < widths.size(); ++axis) {
      ranges[axis] = {at, widths[axis]};
      at += widths[axis];
   }
   return ranges;
}

constexpr std::array<BitRange, widths.size()> ranges = allRanges();
static_assert(ranges.back().at + ranges.back().width == packetBits);

} // namespace

BitRange bitsOf(Axis axis) {
   return ranges[static_cast<std::size_t>(axis)];
}

Axis axisOf(Field field) {
   switch (field) {
   case Field::protocol:
      return Axis::protocol;
   case Field::sourcePort:
      return Axis::sourcePort;
   case Field::destinationPort:
      return Axis::destinationPort;
   case Field::tcpFlags:
      return Axis::tcpFlags;
   case Field::checksum:
      return Axis::checksum;
   case Field::identification:
      return Axis::identification;
   }
   return {}; // no other field exists
}

namespace {

U16 number(const PacketBits& bits, BitRange range) {
   U16 value = 0;
   for (int bit = range.at; bit < range.at + range.width; ++bit) {
      value = static_cast<U16>(value << 1 | (bits[static_cast<std::size_t>(bit)] ? 1 : 0));
   }
   return value;
}

U16 number(const PacketBits& bits, Axis axis) {
   return number(bits, bitsOf(axis));
}

void readAddress(const PacketBits& bits, Axis axis, std::span<U8> address) {
   int at = bitsOf(axis).at;
   for (U8& byte : address) {
      byte = static_cast<U8>(number(bits, {at, 8}));
      at += 8;
   }
}

bool hasPorts(const PacketBits& bits) {
   return number(bits, Axis::hasPorts) != 0;
}

void setNumber(PacketBits& bits, BitRange range, unsigned value) {
   for (int bit = range.at + range.width - 1; bit >= range.at; --bit) {
      bits[static_cast<std::size_t>(bit)] = (value & 1U) != 0;
      value >>= 1U;
   }
}

void setNumber(PacketBits& bits, Axis axis, unsigned value) {
   setNumber(bits, bitsOf(axis), value);
}

void setAddress(PacketBits& bits, Axis axis, std::span<const U8> address) {
   int at = bitsOf(axis).at;
   for (const U8 byte : address) {
      setNumber(bits, {at, 8}, byte);
      at += 8;
   }
}

} // namespace

Packets::Packet packetOf(const PacketBits& bits, Policy::Family family) {
   using Packets::protocolTcp;
   using Packets::protocolUdp;
   const bool ipv4 = family == Policy::Family::ipv4;
   Packets::Packet packet;
   packet.family = ipv4 ? Orlix::AddressFamily::ipv4 : Orlix::AddressFamily::ipv6;
   packet.protocol = static_cast<U8>(number(bits, Axis::protocol));
   const std::size_t bytes = addressSize(packet.family);
   readAddress(bits, Axis::source, std::span{packet.source}.first(bytes));
   readAddress(bits, Axis::destination, std::span{packet.destination}.first(bytes));
   if (hasPorts(bits)) {
      packet.sourcePort = number(bits, Axis::sourcePort);
      packet.destinationPort = number(bits, Axis::destinationPort);
      packet.checksum = number(bits, Axis::checksum);
      if (packet.protocol == protocolTcp) {
         packet.tcpFlags = static_cast<U8>(number(bits, Axis::tcpFlags));
      }
   } else {
      packet.laterFragment = packet.protocol == protocolTcp || packet.protocol == protocolUdp;
   }
   if (ipv4) {
      packet.identification = number(bits, Axis::identification);
   }
   return packet;
}

PacketBits bitsOf(const Packets::Packet& packet) {
   PacketBits bits{};
   setNumber(bits, Axis::protocol, packet.protocol);
   setAddress(bits, Axis::source, packet.sourceAddress());
   setAddress(bits, Axis::destination, packet.destinationAddress());
   setNumber(bits, Axis::hasPorts, packet.sourcePort.has_value() ? 1 : 0);
   setNumber(bits, Axis::sourcePort, packet.sourcePort.value_or(0));
   setNumber(bits, Axis::destinationPort, packet.destinationPort.value_or(0));
   setNumber(bits, Axis::tcpFlags, packet.tcpFlags.value_or(0));
   setNumber(bits, Axis::checksum, packet.checksum.value_or(0));
   setNumber(bits, Axis::identification, packet.identification.value_or(0));
   return bits;
}

} // namespace Postcard::Analysis
