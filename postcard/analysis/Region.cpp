#include "postcard/analysis/Region.h"

#include "postcard/policy/Classes.h"

#include <algorithm>
#include <array>

namespace Postcard::Analysis {

using Packets::Packet;
using Packets::protocolTcp;
using Packets::protocolUdp;

// ---- One packet, one region ----

namespace {

bool inAny(const std::vector<PortRange>& ranges, U16 port) {
   return ranges.empty() ||
          std::ranges::any_of(ranges, [&](const PortRange& range) { return range.contains(port); });
}

bool portsMatch(const Region& region, const Packet& packet) {
   if (!region.ports) {
      return true;
   }
   return packet.sourcePort && packet.destinationPort &&
          std::ranges::any_of(*region.ports, [&](const PortArea& area) {
             return inAny(area.source, *packet.sourcePort) &&
                    inAny(area.destination, *packet.destinationPort);
          });
}

bool flagsMatch(const Region& region, const Packet& packet) {
   if (!region.tcpFlags) {
      return true;
   }
   return packet.tcpFlags && std::ranges::any_of(*region.tcpFlags, [&](const FlagMatch& match) {
             return (*packet.tcpFlags & match.mask) == match.value;
          });
}

bool sampleMatches(const Region& region, const Packet& packet) {
   if (!region.sample) {
      return true;
   }
   const std::optional<U16>& field = region.sample->field == Policy::SampleField::checksum
                                           ? packet.checksum
                                           : packet.identification;
   return field && (*field & region.sample->mask) == region.sample->value;
}

} // namespace

bool contains(const Region& region, const Packet& packet) {
   return packet.protocol >= region.lowProtocol && packet.protocol <= region.highProtocol &&
          region.source.contains(wordsOf(packet.sourceAddress())) &&
          region.destination.contains(wordsOf(packet.destinationAddress())) &&
          portsMatch(region, packet) && flagsMatch(region, packet) && sampleMatches(region, packet);
}

bool contains(const std::vector<Region>& regions, const Packet& packet) {
   return std::ranges::any_of(regions,
                              [&](const Region& region) { return contains(region, packet); });
}

// ---- Two regions ----

namespace {

bool isChecksum(const std::optional<SampleBits>& sample) {
   return sample && sample->field == Policy::SampleField::checksum;
}

// The protocol of a packet in both, if only protocols and the presence of fields counted.
std::optional<U8> commonProtocol(const Region& a, const Region& b, Policy::Family family) {
   const U8 low = std::max(a.lowProtocol, b.lowProtocol);
   const U8 high = std::min(a.highProtocol, b.highProtocol);
   const auto within = [&](U8 protocol) { return low <= protocol && protocol <= high; };
   if (within(protocolTcp)) {
      return protocolTcp;
   }
   if (a.tcpFlags || b.tcpFlags) {
      return std::nullopt;
   }
   if (within(protocolUdp)) {
      return protocolUdp;
   }
   if (low > high || a.ports || b.ports || isChecksum(a.sample) || isChecksum(b.sample)) {
      return std::nullopt;
   }
   const U8 icmp = family == Policy::Family::ipv4 ? 1 : 58;
   return within(icmp) ? icmp : low;
}

// The lowest port in a range of each list.
std::optional<U16> commonPort(const std::vector<PortRange>& a, const std::vector<PortRange>& b) {
   static const std::vector<PortRange> any{PortRange{}};
   std::optional<U16> lowest;
   for (const PortRange& one : a.empty() ? any : a) {
      for (const PortRange& other : b.empty() ? any : b) {
         const U16 low = std::max(one.low, other.low);
         if (low <= std::min(one.high, other.high) && (!lowest || low < *lowest)) {
            lowest = low;
         }
      }
   }
   return lowest;
}

struct Ports {
   U16 source;
   U16 destination;
};

std::optional<Ports> commonPorts(const Region& a, const Region& b) {
   static const std::vector<PortArea> any{PortArea{}};
   for (const PortArea& one : a.ports ? *a.ports : any) {
      for (const PortArea& other : b.ports ? *b.ports : any) {
         const auto source = commonPort(one.source, other.source);
         const auto destination = commonPort(one.destination, other.destination);
         if (source && destination) {
            return Ports{*source, *destination};
         }
      }
   }
   return std::nullopt;
}

std::optional<U8> commonFlags(const Region& a, const Region& b) {
   static const std::vector<FlagMatch> any{FlagMatch{}};
   for (const FlagMatch& one : a.tcpFlags ? *a.tcpFlags : any) {
      for (const FlagMatch& other : b.tcpFlags ? *b.tcpFlags : any) {
         if (((one.value ^ other.value) & one.mask & other.mask) == 0) {
            return static_cast<U8>(one.value | other.value);
         }
      }
   }
   return std::nullopt;
}

bool samplesMeet(const std::optional<SampleBits>& a, const std::optional<SampleBits>& b) {
   return !a || !b || a->field != b->field || ((a->value ^ b->value) & a->mask & b->mask) == 0;
}

// The bits that `sample` asks of `field`.
U16 sampledBits(const std::optional<SampleBits>& sample, Policy::SampleField field) {
   return sample && sample->field == field ? sample->value : U16{0};
}

void setSampledFields(Packet& packet, const Region& a, const Region& b) {
   using Policy::SampleField;
   const auto both = [&](SampleField field) {
      return static_cast<U16>(sampledBits(a.sample, field) | sampledBits(b.sample, field));
   };
   if (packet.sourcePort) {
      packet.checksum = both(SampleField::checksum);
   }
   if (packet.family == Orlix::AddressFamily::ipv4) {
      packet.identification = both(SampleField::ipId);
   }
}

bool needsIdentification(const Region& region) {
   return region.sample && region.sample->field == Policy::SampleField::ipId;
}

} // namespace

std::optional<Packet> commonPacket(const Region& a, const Region& b, Policy::Family family) {
   // The addresses first: they keep most pairs of classes apart.
   if (!a.source.meets(b.source) || !a.destination.meets(b.destination) ||
       !samplesMeet(a.sample, b.sample)) {
      return std::nullopt;
   }
   const bool ipv4 = family == Policy::Family::ipv4;
   if (!ipv4 && (needsIdentification(a) || needsIdentification(b))) {
      return std::nullopt;
   }
   const auto protocol = commonProtocol(a, b, family);
   const auto ports = protocol ? commonPorts(a, b) : std::nullopt;
   const auto flags = ports ? commonFlags(a, b) : std::nullopt;
   if (!protocol || !ports || !flags) {
      return std::nullopt;
   }
   Packet packet;
   packet.family = ipv4 ? Orlix::AddressFamily::ipv4 : Orlix::AddressFamily::ipv6;
   packet.protocol = *protocol;
   const std::size_t bytes = addressSize(packet.family);
   writeAddress(a.source.common(b.source).value, std::span{packet.source}.first(bytes));
   writeAddress(a.destination.common(b.destination).value,
                std::span{packet.destination}.first(bytes));
   if (packet.protocol == protocolTcp || packet.protocol == protocolUdp) {
      packet.sourcePort = ports->source;
      packet.destinationPort = ports->destination;
   }
   if (packet.protocol == protocolTcp) {
      packet.tcpFlags = *flags;
   }
   setSampledFields(packet, a, b);
   return packet;
}

std::optional<Packet> commonPacket(const std::vector<Region>& a, const std::vector<Region>& b,
                                   Policy::Family family) {
   for (const Region& one : a) {
      for (const Region& other : b) {
         if (auto packet = commonPacket(one, other, family)) {
            return packet;
         }
      }
   }
   return std::nullopt;
}

// ---- The regions of a class ----

namespace {

std::vector<PortRange> rangesOf(const std::vector<Policy::NumberRange>& from) {
   std::vector<PortRange> ranges;
   ranges.reserve(from.size());
   for (const Policy::NumberRange& range : from) {
      ranges.push_back({range.low, range.high});
   }
   return ranges;
}

std::vector<PortArea> areasOf(const std::vector<Policy::PortEntry>& entries) {
   std::vector<PortArea> areas;
   for (const Policy::PortEntry& entry : entries) {
      if (!entry.source.empty() || !entry.destination.empty()) {
         areas.push_back({rangesOf(entry.source), rangesOf(entry.destination)});
      }
   }
   return areas;
}

// Adds to `regions` what `match` takes of `common`, which asks for all but protocol, ports and
// flags.
void addProtocol(std::vector<Region>& regions, Region common, const Policy::ProtocolMatch& match,
                 bool flagsCount) {
   common.lowProtocol = match.low;
   common.highProtocol = match.high;
   if (!match.ports.empty()) {
      common.ports = areasOf(match.ports);
      if (common.ports->empty()) {
         return; // only entries without ranges
      }
   }
   if (flagsCount && !match.tcpFlags.empty()) {
      common.tcpFlags.emplace();
      for (const Policy::TcpFlagMatch& flags : match.tcpFlags) {
         common.tcpFlags->push_back({flags.flags, flags.mask});
      }
   }
   regions.push_back(std::move(common));
}

} // namespace

std::vector<Region> regionsOf(const Policy::Class& each, const Circumstances& circumstances,
                              Reading reading) {
   const Policy::Filter& filter = *each.filter(circumstances.family);
   Region common;
   if (!filter.source.empty()) {
      common.source = blockOf(filter.source.front().value);
   }
   if (!filter.destination.empty()) {
      common.destination = blockOf(filter.destination.front().value);
   }
   if (const Policy::SampleMatch* sample = Policy::sampleOf(each, circumstances.family)) {
      common.sample = SampleBits{sample->field, sample->data, sample->mask};
   }
   std::vector<Region> regions;
   if (!filter.protocols.empty()) {
      const bool flagsCount = reading == Reading::meant || circumstances.tcpFlags;
      for (const Policy::ProtocolMatch& match : filter.protocols) {
         addProtocol(regions, common, match, flagsCount);
      }
   } else if (reading == Reading::meant) {
      regions.push_back(common);
   } else {
      for (const U8 protocol : {protocolTcp, protocolUdp}) {
         common.lowProtocol = common.highProtocol = protocol;
         regions.push_back(common);
      }
   }
   return regions;
}

std::vector<ClassRegions> classRegions(const Policy::Policy& policy,
                                       const Circumstances& circumstances, Reading reading) {
   std::vector<ClassRegions> classes;
   for (const Policy::Class* each : Policy::classesInOrder(policy, circumstances.family)) {
      classes.push_back({each, regionsOf(*each, circumstances, reading)});
   }
   return classes;
}

std::size_t firstMatch(const std::vector<ClassRegions>& classes, const Packet& packet) {
   const auto found = std::ranges::find_if(
         classes, [&](const ClassRegions& each) { return contains(each.regions, packet); });
   return static_cast<std::size_t>(found - classes.begin());
}

} // namespace Postcard::Analysis
