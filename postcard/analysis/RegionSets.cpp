#include "postcard/analysis/RegionSets.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <utility>

namespace Postcard::Analysis {

namespace {

PacketSet setOf(const PacketSpace& space, Field field, const std::vector<PortRange>& ranges) {
   PacketSet set;
   for (const PortRange& range : ranges) {
      set |= space.range(field, range.low, range.high);
   }
   return set;
}

PacketSet setOf(const PacketSpace& space, const PortArea& area) {
   PacketSet set = space.withPorts();
   if (!area.source.empty()) {
      set &= setOf(space, Field::sourcePort, area.source);
   }
   if (!area.destination.empty()) {
      set &= setOf(space, Field::destinationPort, area.destination);
   }
   return set;
}

PacketSet setOf(const PacketSpace& space, const std::vector<PortArea>& areas) {
   PacketSet set;
   for (const PortArea& area : areas) {
      set |= setOf(space, area);
   }
   return set;
}

PacketSet setOf(const PacketSpace& space, const std::vector<FlagMatch>& matches) {
   PacketSet set;
   for (const FlagMatch& match : matches) {
      set |= space.bits(Field::tcpFlags, match.value, match.mask);
   }
   return set & space.withTcpFlags();
}

} // namespace

PacketSet setOf(const PacketSpace& space, const SampleBits& sample) {
   return sample.field == Policy::SampleField::checksum
                ? space.bits(Field::checksum, sample.value, sample.mask) & space.withPorts()
                : space.bits(Field::identification, sample.value, sample.mask);
}

PacketSet setOf(const PacketSpace& space, const Region& region) {
   PacketSet set = space.range(Field::protocol, region.lowProtocol, region.highProtocol);
   set &= space.everything();
   set &= space.addresses(Side::source, region.source);
   set &= space.addresses(Side::destination, region.destination);
   if (region.ports) {
      set &= setOf(space, *region.ports);
   }
   if (region.tcpFlags) {
      set &= setOf(space, *region.tcpFlags);
   }
   if (region.sample) {
      set &= setOf(space, *region.sample);
   }
   return set;
}

PacketSet setOf(const PacketSpace& space, const std::vector<Region>& regions) {
   PacketSet set;
   for (const Region& region : regions) {
      set |= setOf(space, region);
   }
   return set;
}

// ---- Residues ----

namespace {

// The logarithm of the share of ports in the ranges, as if they did not overlap.
double breadthOf(const std::vector<PortRange>& ranges) {
   double ports = 0;
   for (const PortRange& range : ranges) {
      ports += range.high - range.low + 1;
   }
   return ranges.empty() ? 0 : std::log2(ports / 65536);
}

double breadthOf(const Region& region) {
   double ports = region.ports ? -32 : 0;
   for (const PortArea& area : region.ports ? *region.ports : std::vector<PortArea>{}) {
      ports = std::max(ports, breadthOf(area.source) + breadthOf(area.destination));
   }
   return ports - region.source.length() - region.destination.length();
}

} // namespace

Residues::Residues(PacketSpace& space, const std::vector<ClassRegions>& classes,
                   Policy::Family family)
   : space_{space},
     classes_{classes},
     family_{family},
     alone_(classes.size()),
     known_(classes.size()) {
   for (const ClassRegions& each : classes) {
      double broadest = std::numeric_limits<double>::lowest();
      for (const Region& region : each.regions) {
         broadest = std::max(broadest, breadthOf(region));
      }
      breadth_.push_back(broadest);
   }
}

const PacketSet& Residues::alone(std::size_t place) {
   if (!known_[place]) {
      alone_[place] = setOf(space_, classes_[place].regions);
      known_[place] = true;
   }
   return alone_[place];
}

std::vector<std::size_t> Residues::rivals(std::size_t place) const {
   std::vector<std::size_t> rivals;
   for (std::size_t earlier = 0; earlier < place; ++earlier) {
      if (commonPacket(classes_[earlier].regions, classes_[place].regions, family_)) {
         rivals.push_back(earlier);
      }
   }
   std::ranges::stable_sort(rivals, std::ranges::greater{},
                            [&](std::size_t rival) { return breadth_[rival]; });
   return rivals;
}

PacketSet Residues::left(const PacketSet& part, std::size_t place) {
   PacketSet left = part;
   for (const std::size_t rival : rivals(place)) {
      if (left.empty()) {
         break;
      }
      left -= alone(rival);
   }
   return left;
}

std::vector<std::size_t> Residues::takers(const PacketSet& part, std::size_t place) {
   std::vector<std::size_t> takers;
   PacketSet left = part;
   for (const std::size_t rival : rivals(place)) {
      if (left.empty()) {
         break;
      }
      PacketSet rest = left - alone(rival);
      if (!(rest == left)) {
         takers.push_back(rival);
      }
      left = std::move(rest);
   }
   return takers;
}

void Residues::forget() {
   std::ranges::fill(alone_, PacketSet{});
   std::fill(known_.begin(), known_.end(), false);
}

} // namespace Postcard::Analysis
