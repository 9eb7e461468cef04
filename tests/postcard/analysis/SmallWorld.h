// `SmallWorld`: random policies over few, colliding values, and all packets that such a policy can
// tell apart. Relies on plain policy values, and reads them by itself, packet by packet: whatever
// `analysis` answers about a policy of this world can be counted out.
//
// Every bound, prefix and mask that a policy draws separates some of the packets, and packets that
// no bound separates are in the world once. So a statement about all packets of the world is one
// about all packets.
#pragma once

#include "postcard/packets/Packet.h"
#include "postcard/policy/Classes.h"
#include "postcard/policy/Policy.h"

#include <algorithm>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace AnalysisTest {

namespace Policy = Postcard::Policy;
using Postcard::Packets::Packet;
using Random = std::mt19937_64;

inline bool chance(Random& random, unsigned percent) {
   return random() % 100 < percent;
}

template <class T>
const T& pick(Random& random, const std::vector<T>& values) {
   return values[random() % values.size()];
}

// ---- Packets ----

constexpr U16 highestBound = 3; // of a port range; one port above stands for all others

inline std::vector<std::string> sourcePrefixes(Policy::Family family) {
   return family == Policy::Family::ipv4
                ? std::vector<std::string>{"10.0.0.0/8", "10.1.0.0/16"}
                : std::vector<std::string>{"2001:db8::/32", "2001:db8:0:0:8000::/65"};
}
inline std::vector<std::string> sourceAddresses(Policy::Family family) {
   return family == Policy::Family::ipv4
                ? std::vector<std::string>{"11.0.0.1", "10.0.0.1", "10.1.0.1"}
                : std::vector<std::string>{"[2002::1]", "[2001:db8::1]", "[2001:db8:0:0:8000::1]"};
}
inline std::string destinationPrefix(Policy::Family family) {
   return family == Policy::Family::ipv4 ? "192.0.2.4/30" : "2001:db8:1::4/126";
}
inline std::vector<std::string> destinationAddresses(Policy::Family family) {
   return family == Policy::Family::ipv4
                ? std::vector<std::string>{"192.0.2.1", "192.0.2.5"}
                : std::vector<std::string>{"[2001:db8:1::1]", "[2001:db8:1::5]"};
}

inline void addWithPorts(std::vector<Packet>& packets, const Packet& from, U8 protocol) {
   Packet packet = from;
   packet.protocol = protocol;
   for (U16 source = 0; source <= highestBound + 1; ++source) {
      for (U16 destination = 0; destination <= highestBound + 1; ++destination) {
         for (U16 checksum = 0; checksum < 2; ++checksum) {
            packet.sourcePort = source;
            packet.destinationPort = destination;
            packet.checksum = checksum;
            for (const U8 flags :
                 protocol == 6 ? std::vector<U8>{0, 2, 16, 18} : std::vector<U8>{0}) {
               packet.tcpFlags = protocol == 6 ? std::optional<U8>{flags} : std::nullopt;
               packets.push_back(packet);
            }
         }
      }
   }
}

// All packets of the world in one family.
inline std::vector<Packet> allPackets(Policy::Family family) {
   std::vector<Packet> packets;
   const bool ipv4 = family == Policy::Family::ipv4;
   for (const std::string& source : sourceAddresses(family)) {
      for (const std::string& destination : destinationAddresses(family)) {
         for (U16 id = 0; id < (ipv4 ? 2 : 1); ++id) {
            Packet packet = Postcard::Packets::parsePacket("1 " + source + " > " + destination);
            if (ipv4) {
               packet.identification = id;
            }
            packets.push_back(packet);
            for (const U8 protocol : {U8{6}, U8{17}}) {
               addWithPorts(packets, packet, protocol);
               packets.push_back(packet);
               packets.back().protocol = protocol;
               packets.back().laterFragment = true;
            }
         }
      }
   }
   return packets;
}

// ---- Policies ----

struct Draw {
   Policy::Family family = Policy::Family::ipv4;
   bool tcpFlags = true; // of the hardware; without them, UDP may ask for flags
};

inline std::vector<Policy::NumberRange> randomRanges(Random& random) {
   std::vector<Policy::NumberRange> ranges;
   for (std::size_t count = random() % 3; count > 0; --count) {
      const U16 low = static_cast<U16>(random() % (highestBound + 1));
      const U16 high = static_cast<U16>(low + random() % (highestBound + 1U - low));
      const Policy::NumberRange range{low, high, {}};
      const auto equal = [&](const Policy::NumberRange& other) {
         return other.low == low && other.high == high;
      };
      if (std::none_of(ranges.begin(), ranges.end(), equal)) {
         ranges.push_back(range);
      }
   }
   return ranges;
}

inline Policy::ProtocolMatch randomProtocol(Random& random, U8 protocol, bool flags) {
   Policy::ProtocolMatch match;
   match.low = match.high = protocol;
   for (std::size_t count = random() % 3; count > 0; --count) {
      Policy::PortEntry entry;
      entry.source = randomRanges(random);
      entry.destination = randomRanges(random);
      match.ports.push_back(entry);
   }
   if (flags && chance(random, 40)) {
      const U8 mask = pick<U8>(random, {2, 16, 18});
      match.tcpFlags.push_back(
            {static_cast<U8>(pick<U8>(random, {0, 2, 16, 18}) & mask), mask, {}});
   }
   return match;
}

inline Policy::Filter randomFilter(Random& random, const Draw& draw) {
   Policy::Filter filter;
   if (chance(random, 50)) {
      filter.source.push_back({Orlix::IpGenPrefix{pick(random, sourcePrefixes(draw.family))}, {}});
   }
   if (chance(random, 30)) {
      filter.destination.push_back({Orlix::IpGenPrefix{destinationPrefix(draw.family)}, {}});
   }
   if (chance(random, 30)) {
      filter.sample = Policy::SampleMatch{static_cast<U16>(random() % 2),
                                          1,
                                          draw.family == Policy::Family::ipv4 && chance(random, 50)
                                                ? Policy::SampleField::ipId
                                                : Policy::SampleField::checksum,
                                          {}};
   }
   if (chance(random, 60)) {
      filter.protocols.push_back(randomProtocol(random, 6, true));
   }
   if (chance(random, 60)) {
      filter.protocols.push_back(randomProtocol(random, 17, !draw.tcpFlags));
   }
   return filter;
}

// A policy of one to five classes, each at a line of its own.
inline Policy::Policy randomPolicy(Random& random, const Draw& draw) {
   Policy::Policy policy;
   policy.name = {"p", {1, 1}};
   policy.ipv4Interfaces.push_back({"Ethernet1", {}});
   policy.ipv6Interfaces.push_back({"Ethernet1", {}});
   const U32 classes = 1 + static_cast<U32>(random() % 5);
   for (U32 i = 0; i < classes; ++i) {
      Policy::Class& each = policy.classes.emplace_back();
      each.name = {"c" + std::to_string(i), {10 + i, 5}};
      each.priority = (i + 1) * Policy::positionStep;
      if (chance(random, 60)) {
         each.actions.push_back({Policy::ActionKind::sample, 0, {}});
      }
      if (chance(random, 20)) {
         each.actions.push_back({Policy::ActionKind::sampleAll, 0, {}});
      }
      if (chance(random, 20)) {
         each.actions.push_back({Policy::ActionKind::setDscp, pick<U8>(random, {0, 46}), {}});
      }
      (draw.family == Policy::Family::ipv4 ? each.ipv4 : each.ipv6) = randomFilter(random, draw);
   }
   return policy;
}

// ---- What a policy means ----

inline bool portsAllow(const std::vector<Policy::NumberRange>& ranges, U16 port) {
   bool allowed = ranges.empty();
   for (const Policy::NumberRange& range : ranges) {
      allowed = allowed || (range.low <= port && port <= range.high);
   }
   return allowed;
}

inline bool entryTakes(const Policy::PortEntry& entry, const Packet& packet) {
   return (!entry.source.empty() || !entry.destination.empty()) && packet.sourcePort &&
          portsAllow(entry.source, *packet.sourcePort) &&
          portsAllow(entry.destination, *packet.destinationPort);
}

inline bool protocolTakes(const Policy::ProtocolMatch& match, const Packet& packet,
                          bool flagsCount) {
   bool ports = match.ports.empty();
   for (const Policy::PortEntry& entry : match.ports) {
      ports = ports || entryTakes(entry, packet);
   }
   bool flags = match.tcpFlags.empty() || !flagsCount;
   for (const Policy::TcpFlagMatch& each : match.tcpFlags) {
      flags = flags || (packet.tcpFlags && (*packet.tcpFlags & each.mask) == each.flags);
   }
   return match.low <= packet.protocol && packet.protocol <= match.high && ports && flags;
}

// Whether the class takes the packet: as its filter says, or as rules can express it.
inline bool takes(const Policy::Class& each, const Packet& packet, const Draw& draw, bool asBuilt) {
   const Policy::Filter& filter = *each.filter(draw.family);
   if (!filter.source.empty() && !filter.source[0].value.contains(packet.sourceAddress())) {
      return false;
   }
   if (!filter.destination.empty() &&
       !filter.destination[0].value.contains(packet.destinationAddress())) {
      return false;
   }
   if (filter.sample && actionOf(each, Policy::ActionKind::sample) != nullptr) {
      const auto field = filter.sample->field == Policy::SampleField::checksum
                               ? packet.checksum
                               : packet.identification;
      if (!field || (*field & filter.sample->mask) != filter.sample->data) {
         return false;
      }
   }
   bool protocol =
         filter.protocols.empty() && (!asBuilt || packet.protocol == 6 || packet.protocol == 17);
   for (const Policy::ProtocolMatch& match : filter.protocols) {
      protocol = protocol || protocolTakes(match, packet, !asBuilt || draw.tcpFlags);
   }
   return protocol;
}

// The place of the first class that takes the packet, or the number of classes.
inline std::size_t firstClass(const Policy::Policy& policy, const Packet& packet, const Draw& draw,
                              bool asBuilt) {
   std::size_t place = 0;
   while (place < policy.classes.size() && !takes(policy.classes[place], packet, draw, asBuilt)) {
      ++place;
   }
   return place;
}

} // namespace AnalysisTest
