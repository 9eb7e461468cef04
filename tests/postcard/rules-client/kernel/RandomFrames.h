// `frameOf`: an Ethernet frame that holds a packet, dressed at random: VLAN tags, options,
// extension headers, padding. `damaged`: the same with flipped bits, wrong lengths, or a part cut
// off. Relies on the packet model. What a frame comes to is asked of `decodeFrame`, so a frame may
// hold something other than its packet.
#pragma once

#include "postcard/classifier/RandomAcl.h"

#include <algorithm>
#include <vector>

namespace RulesClientTest {

using Bytes = std::vector<U8>;
using Postcard::Packets::Packet;

inline void put16(Bytes& bytes, unsigned value) {
   bytes.push_back(static_cast<U8>(value >> 8));
   bytes.push_back(static_cast<U8>(value));
}

inline void append(Bytes& bytes, const Bytes& more) {
   bytes.insert(bytes.end(), more.begin(), more.end());
}

inline Bytes randomBytes(Random& random, std::size_t count) {
   Bytes bytes(count);
   std::ranges::generate(bytes, [&] { return static_cast<U8>(random()); });
   return bytes;
}

// The transport header, as far as the packet has it, and some payload behind a whole one.
inline Bytes transportOf(Random& random, const Packet& packet) {
   if (packet.laterFragment || !packet.isTcpOrUdp()) {
      return randomBytes(random, random() % 40);
   }
   const bool isTcp = packet.protocol == 6;
   Bytes header;
   put16(header, packet.sourcePort.value_or(0xdead));
   put16(header, packet.destinationPort.value_or(0xdead));
   if (isTcp) {
      append(header, {0, 0, 0, 1, 0, 0, 0, 2, 0x50, packet.tcpFlags.value_or(0xff), 9, 9});
   } else {
      put16(header, 8);
   }
   put16(header, packet.checksum.value_or(0xdead));
   if (packet.checksum) {
      append(header, randomBytes(random, isTcp ? 2 + random() % 30 : random() % 30));
      return header;
   }
   // Up to the end of the last field that is there, and not as far as the next one.
   const std::size_t size = packet.tcpFlags          ? 14 + random() % 4
                            : packet.destinationPort ? 4 + random() % (isTcp ? 10 : 4)
                            : packet.sourcePort      ? 2 + random() % 2
                                                     : random() % 2;
   header.resize(size);
   return header;
}

inline Bytes ipv4Of(Random& random, const Packet& packet) {
   const std::size_t options = chance(random, 20) ? random() % 11 : 0;
   const Bytes payload = transportOf(random, packet);
   const std::size_t total = 20 + options * 4 + payload.size();
   Bytes bytes{static_cast<U8>(0x45 + options),
               static_cast<U8>(packet.dscp << 2 | static_cast<U8>(random() % 4))};
   put16(bytes, static_cast<unsigned>(chance(random, 5) ? 0 : total));
   put16(bytes, packet.identification.value_or(0));
   put16(bytes, packet.laterFragment ? static_cast<unsigned>(0x2000 + 1 + random() % 0x1000)
                                     : pick<unsigned>(random, {0, 0x4000, 0x2000}));
   append(bytes, {64, packet.protocol});
   append(bytes, randomBytes(random, 2)); // the checksum, which is taken as it is
   append(bytes, {packet.source.begin(), packet.source.begin() + 4});
   append(bytes, {packet.destination.begin(), packet.destination.begin() + 4});
   append(bytes, randomBytes(random, options * 4));
   append(bytes, payload);
   return bytes;
}

// A chain of extension headers in front of `payload`; `first` becomes the number of the first one.
inline Bytes extensionsOf(Random& random, const Packet& packet, U8& first, Bytes payload) {
   first = packet.protocol;
   if (packet.laterFragment || chance(random, 15)) {
      Bytes fragment{first, 0};
      put16(fragment, packet.laterFragment ? static_cast<unsigned>(8 + random() % 0x1000 * 8) : 1);
      append(fragment, randomBytes(random, 4));
      append(fragment, payload);
      payload = fragment;
      first = 44;
   }
   for (std::size_t count = chance(random, 30) ? 1 + random() % 4 : 0; count > 0; --count) {
      const U8 kind = pick<U8>(random, {0, 43, 51, 60, 135, 139, 140});
      const auto length = static_cast<U8>(random() % 4);
      const std::size_t size = kind == 51 ? (length + 2U) * 4U : (length + 1U) * 8U;
      Bytes header{first, length};
      append(header, randomBytes(random, size - 2));
      append(header, payload);
      payload = header;
      first = kind;
   }
   return payload;
}

inline Bytes ipv6Of(Random& random, const Packet& packet) {
   U8 first = 0;
   const Bytes payload = extensionsOf(random, packet, first, transportOf(random, packet));
   Bytes bytes;
   put16(bytes,
         0x6000U | static_cast<unsigned>(packet.dscp) << 6 | static_cast<unsigned>(random() % 64));
   append(bytes, randomBytes(random, 2));
   put16(bytes, static_cast<unsigned>(chance(random, 5) ? 0 : payload.size()));
   append(bytes, {first, 64});
   append(bytes, {packet.source.begin(), packet.source.end()});
   append(bytes, {packet.destination.begin(), packet.destination.end()});
   append(bytes, payload);
   return bytes;
}

inline Bytes linkHeader(Random& random, unsigned etherType) {
   Bytes frame = randomBytes(random, 12);
   for (std::size_t tags = chance(random, 25) ? 1 + random() % 3 : 0; tags > 0; --tags) {
      put16(frame, pick<unsigned>(random, {0x8100, 0x8100, 0x88a8, 0x9100, 0x9200}));
      put16(frame, static_cast<unsigned>(random() % 0x10000));
   }
   put16(frame, etherType);
   return frame;
}

inline Bytes frameOf(Random& random, const Packet& packet) {
   const bool ipv4 = packet.family == Orlix::AddressFamily::ipv4;
   Bytes frame = linkHeader(random, ipv4 ? 0x0800 : 0x86dd);
   append(frame, ipv4 ? ipv4Of(random, packet) : ipv6Of(random, packet));
   if (chance(random, 30) && frame.size() < 60) {
      append(frame, randomBytes(random, 60 - frame.size())); // as Ethernet pads short frames
   }
   return frame;
}

// At least 14 bytes stay, the shortest frame that there is.
inline Bytes damaged(Random& random, Bytes frame) {
   switch (random() % 4) {
   case 0: // some bits
      for (std::size_t bits = 1 + random() % 3; bits > 0; --bits) {
         frame[random() % frame.size()] ^= static_cast<U8>(1U << random() % 8);
      }
      break;
   case 1: // the end
      frame.resize(14 + random() % (frame.size() - 13));
      break;
   case 2: // a length, a type or a number of an early header
      frame[12 + random() % std::min<std::size_t>(frame.size() - 12, 48)] =
            pick<U8>(random, {0, 1, 4, 5, 6, 17, 20, 43, 44, 51, 60, 0x81, 0x86, 0xff});
      break;
   default: // everything behind the addresses of the link
      std::generate(frame.begin() +
                          static_cast<std::ptrdiff_t>(14 + random() % (frame.size() - 13)),
                    frame.end(), [&] { return static_cast<U8>(random()); });
      break;
   }
   return frame;
}

// Gives the packet what a rule asks for; the rest stays.
inline void aim(Random& random, const RuleFilter& filter, Packet& packet) {
   const auto address = [&](const Orlix::IpGenPrefix& prefix, std::array<U8, 16>& bytes) {
      for (unsigned bit = 0; bit < prefix.length(); ++bit) {
         const auto one = static_cast<U8>(0x80U >> bit % 8);
         bytes[bit / 8] =
               static_cast<U8>((bytes[bit / 8] & ~one) | (prefix.address()[bit / 8] & one));
      }
   };
   address(filter.source(), packet.source);
   address(filter.destination(), packet.destination);
   packet.protocol = filter.proto().value();
   packet.laterFragment = false;
   packet.sourcePort = packet.destinationPort = packet.checksum = std::nullopt;
   packet.tcpFlags = std::nullopt;
   if (!packet.isTcpOrUdp()) {
      return;
   }
   const auto word = [&](unsigned data, unsigned mask) {
      return static_cast<U16>((data & mask) | (random() & ~mask));
   };
   const auto& sport = filter.sportDataMask();
   const auto& dport = filter.dportDataMask();
   packet.sourcePort = filter.sportDataMaskValid() ? word(sport.l4PortData(), sport.l4PortMask())
                                                   : pick(random, somePorts);
   packet.destinationPort = filter.dportDataMaskValid()
                                  ? word(dport.l4PortData(), dport.l4PortMask())
                                  : pick(random, somePorts);
   packet.checksum = pick(random, someSamples);
   const auto& sample = filter.sampleDataAndMask();
   if (sample != nullptr) {
      const U16 value = word(sample->data(), sample->mask());
      if (sample->version() == 0) {
         packet.checksum = value;
      } else if (packet.identification) {
         packet.identification = value;
      }
   }
   if (packet.protocol == 6) {
      const auto& flags = filter.tcpFlagAndMask();
      packet.tcpFlags = static_cast<U8>(word(flags.tcpFlag().value(), flags.tcpFlagMask().value()));
   }
}

} // namespace RulesClientTest
