#include "postcard/analysis/RuleRuns.h"

#include "postcard/analysis/RegionSets.h"
#include "postcard/host/RuleNames.h"
#include "postcard/policy/Classes.h"

#include <string_view>
#include <unordered_map>
#include <utility>

namespace Postcard::Analysis {

using OruPostcardTelemetry::PostcardTelemetryAclConfig;
using OruPostcardTelemetry::RuleAction;
using OruPostcardTelemetry::RuleConfig;
using OruPostcardTelemetry::RuleFilter;

// ---- One rule ----

namespace {

std::optional<BlockOfPorts> portBlock(bool valid,
                                      const OruPostcardTelemetry::L4PortDataMask& match) {
   if (!valid) {
      return std::nullopt;
   }
   return BlockOfPorts{static_cast<U16>(match.l4PortData() & match.l4PortMask()),
                       match.l4PortMask()};
}

// Whether the prefix is of the family, or stands for every address of any family.
bool usable(const Orlix::IpGenPrefix& prefix, Policy::Family family) {
   const auto own =
         family == Policy::Family::ipv4 ? Orlix::AddressFamily::ipv4 : Orlix::AddressFamily::ipv6;
   return prefix.family() == own || prefix == OruPostcardTelemetry::anyPrefix();
}

void readSample(RuleShape& shape, const Classification::TcpUdpCheckSumOrIpId& match,
                Policy::Family family) {
   const bool isChecksum = match.version() == Classification::sampleVersionChecksum;
   const bool isIpId =
         match.version() == Classification::sampleVersionIpId && family == Policy::Family::ipv4;
   const U32 value = match.data() & match.mask();
   shape.impossible = shape.impossible || (!isChecksum && !isIpId) || value > 0xffffU;
   shape.sample = SampleBits{isChecksum ? Policy::SampleField::checksum : Policy::SampleField::ipId,
                             static_cast<U16>(value), static_cast<U16>(match.mask())};
}

void readFilter(RuleShape& shape, const RuleFilter& filter, Policy::Family family) {
   shape.protocol = filter.proto().value();
   shape.impossible = !usable(filter.source(), family) || !usable(filter.destination(), family);
   shape.source = blockOf(filter.source());
   shape.destination = blockOf(filter.destination());
   shape.sourcePort = portBlock(filter.sportDataMaskValid(), filter.sportDataMask());
   shape.destinationPort = portBlock(filter.dportDataMaskValid(), filter.dportDataMask());
   const auto& flags = filter.tcpFlagAndMask();
   shape.tcpFlags.mask = flags.tcpFlagMask().value();
   shape.tcpFlags.value = flags.tcpFlag().value() & shape.tcpFlags.mask;
   if (filter.sampleDataAndMask() != nullptr && filter.sampleDataAndMask()->mask() != 0) {
      readSample(shape, *filter.sampleDataAndMask(), family);
   }
}

void readAction(RuleShape& shape, const RuleAction& action) {
   shape.sampled = action.action(RuleAction::sampleAction);
   shape.marks = action.action(RuleAction::setDscpAction) &&
                 (action.dscpDataAndMask().dscpMask() & 0x3fU) != 0;
   shape.unknownAction = action.action(RuleAction::policeAction);
}

bool portMatches(const std::optional<BlockOfPorts>& block, const std::optional<U16>& port) {
   return !block || (port && (*port & block->mask) == block->value);
}

} // namespace

RuleShape shapeOf(const RuleConfig& rule, Policy::Family family) {
   RuleShape shape;
   if (rule.ruleFilter() == nullptr) {
      shape.impossible = true;
   } else {
      readFilter(shape, *rule.ruleFilter(), family);
   }
   if (rule.ruleAction() == nullptr) {
      shape.unknownAction = true;
   } else {
      readAction(shape, *rule.ruleAction());
   }
   return shape;
}

bool contains(const RuleShape& shape, const Packets::Packet& packet) {
   Region rest; // all but the ports, which a region compares by range
   rest.lowProtocol = rest.highProtocol = shape.protocol;
   rest.source = shape.source;
   rest.destination = shape.destination;
   rest.sample = shape.sample;
   if (shape.tcpFlags.mask != 0) {
      rest.tcpFlags = {shape.tcpFlags};
   }
   return !shape.impossible && portMatches(shape.sourcePort, packet.sourcePort) &&
          portMatches(shape.destinationPort, packet.destinationPort) && contains(rest, packet);
}

// ---- All rules ----

namespace {

// Finds the place of a rule's class.
class Places {
 public:
   Places(const std::vector<ClassRegions>& classes, Policy::Family family)
      : classes_{classes}, family_{family} {
      for (std::size_t place = 0; place < classes.size(); ++place) {
         places_.emplace(classes[place].which->name.text, place);
      }
   }

   // As `RuleRun::place`.
   std::size_t of(const RuleConfig& rule, const RuleShape& shape) const {
      const auto found = places_.find(Host::classOfRule(rule.name().view(), family_));
      if (found == places_.end()) {
         return classes_.size();
      }
      // No rule marks packets, whatever its class says: see "The software TCAM and what a policy
      // means" in DESIGN.md.
      const bool asMeant = !shape.unknownAction && !shape.marks &&
                           shape.sampled == Policy::samples(*classes_[found->second].which);
      return asMeant ? found->second : classes_.size();
   }

 private:
   const std::vector<ClassRegions>& classes_;
   Policy::Family family_;
   std::unordered_map<std::string_view, std::size_t> places_;
};

// The blocks of ports and flags that have been made before: there are few, and each is met often.
class BlockSets {
 public:
   explicit BlockSets(const PacketSpace& space) : space_{space} {}

   const PacketSet& of(Field field, U16 value, U16 mask) {
      const U64 key = U64{static_cast<U8>(field)} << 32 | U64{value} << 16 | mask;
      const auto found = sets_.find(key);
      return found != sets_.end()
                   ? found->second
                   : sets_.emplace(key, space_.bits(field, value, mask)).first->second;
   }

 private:
   const PacketSpace& space_;
   std::unordered_map<U64, PacketSet> sets_;
};

// The union of rules, factor by factor. Each level unites what the level below has united since the
// level's own factor changed.
class RuleUnion {
 public:
   RuleUnion(const PacketSpace& space, BlockSets& blocks) : space_{space}, blocks_{blocks} {}

   void add(const RuleShape& shape) {
      if (shape.impossible) {
         return;
      }
      if (!started_ || !sameCommon(shape)) {
         closeCommon();
      } else if (shape.sourcePort != last_.sourcePort) {
         closeSource();
      } else if (shape.destinationPort != last_.destinationPort) {
         closeDestination();
      }
      last_ = shape;
      started_ = true;
      if (shape.tcpFlags.mask != 0) {
         flags_ |= blocks_.of(Field::tcpFlags, shape.tcpFlags.value, shape.tcpFlags.mask);
      }
   }

   // The union; the next one begins empty.
   PacketSet take() {
      closeCommon();
      started_ = false;
      return std::exchange(all_, PacketSet{});
   }

 private:
   // Whether `shape` agrees with the rule before in all that is applied once: also in whether it
   // compares flags, and whether it needs ports.
   bool sameCommon(const RuleShape& shape) const {
      return shape.protocol == last_.protocol && shape.source == last_.source &&
             shape.destination == last_.destination && shape.sample == last_.sample &&
             (shape.tcpFlags.mask == 0) == (last_.tcpFlags.mask == 0) &&
             shape.sourcePort.has_value() == last_.sourcePort.has_value() &&
             shape.destinationPort.has_value() == last_.destinationPort.has_value();
   }
   PacketSet factor(Field field, const std::optional<BlockOfPorts>& block, const PacketSet& below) {
      return block ? blocks_.of(field, block->value, block->mask) & below : below;
   }
   void closeDestination() {
      const PacketSet flags = last_.tcpFlags.mask != 0 ? flags_ : space_.anything();
      destinations_ |= factor(Field::destinationPort, last_.destinationPort, flags);
      flags_ = PacketSet{};
   }
   void closeSource() {
      closeDestination();
      sources_ |= factor(Field::sourcePort, last_.sourcePort, destinations_);
      destinations_ = PacketSet{};
   }
   void closeCommon() {
      if (!started_) {
         return;
      }
      closeSource();
      const bool needsPorts = last_.sourcePort || last_.destinationPort;
      PacketSet common = space_.bits(Field::protocol, last_.protocol, 0xff);
      common &= last_.tcpFlags.mask != 0 ? space_.withTcpFlags()
                : needsPorts             ? space_.withPorts()
                                         : space_.everything();
      common &= space_.addresses(Side::source, last_.source);
      common &= space_.addresses(Side::destination, last_.destination);
      common &= sources_;
      if (last_.sample) {
         common &= setOf(space_, *last_.sample);
      }
      all_ |= common;
      sources_ = PacketSet{};
   }

   const PacketSpace& space_;
   BlockSets& blocks_;
   RuleShape last_; // meaningless unless started_
   bool started_ = false;
   PacketSet flags_;
   PacketSet destinations_;
   PacketSet sources_;
   PacketSet all_;
};

} // namespace

std::vector<RuleRun> ruleRuns(const PacketSpace& space, const PostcardTelemetryAclConfig& acl,
                              const std::vector<ClassRegions>& classes, Policy::Family family) {
   const Places places{classes, family};
   BlockSets blocks{space};
   RuleUnion rules{space, blocks};
   std::vector<RuleRun> runs;
   for (const auto& entry : acl.ruleByIndex()) {
      const RuleShape shape = shapeOf(*entry.value(), family);
      const std::size_t place = places.of(*entry.value(), shape);
      if (runs.empty() || runs.back().place != place) {
         if (!runs.empty()) {
            runs.back().packets = rules.take();
         }
         runs.push_back({place, {}});
      }
      rules.add(shape);
   }
   if (!runs.empty()) {
      runs.back().packets = rules.take();
   }
   return runs;
}

RuleFate fateIn(const PostcardTelemetryAclConfig& acl, const std::vector<ClassRegions>& classes,
                Policy::Family family, const Packets::Packet& packet) {
   for (const auto& entry : acl.ruleByIndex()) {
      const RuleShape shape = shapeOf(*entry.value(), family);
      if (contains(shape, packet)) {
         return {entry.value()->name(), Places{classes, family}.of(*entry.value(), shape),
                 shape.sampled, shape.marks};
      }
   }
   return {{}, classes.size(), false, false};
}

} // namespace Postcard::Analysis
