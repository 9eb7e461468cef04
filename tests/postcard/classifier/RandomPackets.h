// `randomPacket`: packets of small value sets, so that they meet the rules and policies that tests
// draw from the same sets. Relies on the packet model only.
#pragma once

#include "postcard/packets/Packet.h"

#include <cstdlib>
#include <random>
#include <string_view>
#include <vector>

namespace RulesClientTest {

using Random = std::mt19937_64;

// How many packets a random test draws: `usual`, or what the environment variable
// POSTCARD_CLASSIFIER_PACKETS says.
inline std::size_t packetsToTry(std::size_t usual) {
   const char* wanted = std::getenv("POSTCARD_CLASSIFIER_PACKETS");
   return wanted == nullptr ? usual : std::strtoull(wanted, nullptr, 10);
}

template <class T>
T pick(Random& random, const std::vector<T>& values) {
   return values[random() % values.size()];
}

inline bool chance(Random& random, unsigned percent) {
   return random() % 100 < percent;
}

inline void randomAddress(Random& random, Orlix::AddressFamily family, std::array<U8, 16>& bytes) {
   bytes = {};
   if (family == Orlix::AddressFamily::ipv4) {
      bytes[0] = pick<U8>(random, {10, 10, 10, 11});
      bytes[1] = pick<U8>(random, {0, 1});
      bytes[2] = pick<U8>(random, {0, 127, 128});
      bytes[3] = pick<U8>(random, {0, 1, 255});
      return;
   }
   bytes[0] = 0x20;
   bytes[1] = pick<U8>(random, {1, 1, 1, 2});
   bytes[2] = 0x0d;
   bytes[3] = 0xb8;
   bytes[5] = pick<U8>(random, {0, 1});
   bytes[8] = pick<U8>(random, {0, 0x80});
   bytes[15] = pick<U8>(random, {0, 1, 2});
}

// Prefixes that divide the addresses above.
inline std::vector<std::string_view> prefixes(Orlix::AddressFamily family) {
   return family == Orlix::AddressFamily::ipv4
                ? std::vector<std::string_view>{"0.0.0.0/0",     "10.0.0.0/8",    "10.1.0.0/16",
                                                "10.0.128.0/17", "10.1.128.0/31", "10.1.0.1/32"}
                : std::vector<std::string_view>{"0.0.0.0/0",        "::/0",
                                                "2001::/16",        "2001:db8:1::/48",
                                                "2001:db8::/64",    "2001:db8:0:0:8000::/65",
                                                "2001:db8:1::/127", "2001:db8::1/128"};
}

inline const std::vector<U16> somePorts = {0, 1, 2, 3, 4, 80, 443, 1023, 1024, 65535};
inline const std::vector<U16> someSamples = {0, 1, 2, 3, 0x0100, 0x8001};

// Leaves the first `fields` of source port, destination port and flags, and no checksum, as a
// capture does that cuts the header off.
inline void cutHeader(Postcard::Packets::Packet& packet, std::size_t fields) {
   packet.checksum.reset();
   if (fields < 3) {
      packet.tcpFlags.reset();
   }
   if (fields < 2) {
      packet.destinationPort.reset();
   }
   if (fields < 1) {
      packet.sourcePort.reset();
   }
}

inline Postcard::Packets::Packet randomPacket(Random& random, Orlix::AddressFamily family) {
   Postcard::Packets::Packet packet;
   packet.family = family;
   randomAddress(random, family, packet.source);
   randomAddress(random, family, packet.destination);
   packet.protocol = pick<U8>(random, {6, 6, 6, 17, 17, 1});
   packet.dscp = pick<U8>(random, {0, 46, 63});
   packet.laterFragment = chance(random, 5);
   if (!packet.laterFragment && packet.protocol != 1) {
      packet.sourcePort = pick(random, somePorts);
      packet.destinationPort = pick(random, somePorts);
      packet.checksum = pick(random, someSamples);
      if (packet.protocol == 6) {
         packet.tcpFlags = pick<U8>(random, {0, 2, 16, 18, 1});
      }
      if (chance(random, 8)) {
         cutHeader(packet, random() % 4);
      }
   }
   if (family == Orlix::AddressFamily::ipv4) {
      packet.identification = pick(random, someSamples);
   }
   return packet;
}

} // namespace RulesClientTest
