// `Capture`: a capture file, written byte by byte so that it can also be a wrong one, and `packet`,
// the raw IP packets to put into it. Relies on nothing.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace TestSupport {

using Bytes = std::vector<std::uint8_t>;

// Appends the lowest `size` bytes of the value, lowest first.
inline void little(Bytes& out, std::uint32_t value, int size = 4) {
   for (int i = 0; i < size; ++i) {
      out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
   }
}

// Appends 16 bits in network order.
inline void big(Bytes& out, unsigned value) {
   out.push_back(static_cast<std::uint8_t>(value >> 8));
   out.push_back(static_cast<std::uint8_t>(value));
}

inline std::string textOf(const Bytes& bytes) {
   return {bytes.begin(), bytes.end()};
}

constexpr std::uint32_t rawIpLink = 101;

// A pcap file, little-endian.
class Capture {
 public:
   explicit Capture(std::uint32_t linkType = rawIpLink, std::uint32_t snapLength = 65535) {
      little(bytes, 0xa1b2c3d4);
      little(bytes, 2, 2);
      little(bytes, 4, 2);
      little(bytes, 0);
      little(bytes, 0);
      little(bytes, snapLength);
      little(bytes, linkType);
   }
   Capture& add(const Bytes& frame) {
      return add(frame, static_cast<std::uint32_t>(frame.size()),
                 static_cast<std::uint32_t>(frame.size()));
   }
   // With sizes that the record claims: captured, and on the wire.
   Capture& add(const Bytes& frame, std::uint32_t captured, std::uint32_t onWire) {
      little(bytes, 0);
      little(bytes, 0);
      little(bytes, captured);
      little(bytes, onWire);
      bytes.insert(bytes.end(), frame.begin(), frame.end());
      return *this;
   }

   Bytes bytes;
};

struct Header {
   Bytes source = {10, 0, 0, 1}; // 4 or 16 bytes
   Bytes destination = {192, 0, 2, 1};
   unsigned protocol = 6; // TCP, UDP, or one without a header of interest
   unsigned sourcePort = 1024;
   unsigned destinationPort = 80;
   unsigned flags = 0x10;
   unsigned checksum = 0;
   unsigned id = 0;
};

inline Bytes transport(const Header& header) {
   Bytes bytes;
   big(bytes, header.sourcePort);
   big(bytes, header.destinationPort);
   if (header.protocol == 17) {
      big(bytes, 8);
      big(bytes, header.checksum);
      return bytes;
   }
   bytes.resize(12);
   big(bytes, 0x5000U | header.flags);
   big(bytes, 0);
   big(bytes, header.checksum);
   big(bytes, 0);
   return bytes;
}

inline Bytes packet(const Header& header) {
   const Bytes payload = header.protocol == 1 ? Bytes(8, 0) : transport(header);
   const bool ipv4 = header.source.size() == 4;
   Bytes bytes;
   if (ipv4) {
      bytes = {0x45, 0};
      big(bytes, static_cast<unsigned>(20 + payload.size()));
      big(bytes, header.id);
      bytes.insert(bytes.end(), {0, 0, 64, static_cast<std::uint8_t>(header.protocol), 0, 0});
   } else {
      bytes = {0x60, 0, 0, 0};
      big(bytes, static_cast<unsigned>(payload.size()));
      bytes.insert(bytes.end(), {static_cast<std::uint8_t>(header.protocol), 64});
   }
   bytes.insert(bytes.end(), header.source.begin(), header.source.end());
   bytes.insert(bytes.end(), header.destination.begin(), header.destination.end());
   bytes.insert(bytes.end(), payload.begin(), payload.end());
   return bytes;
}

} // namespace TestSupport
