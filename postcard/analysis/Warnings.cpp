// `warningsOf`: shadows and overlaps, which need exact sets. What can be read off a class alone
// stands in PlainWarnings.cpp.
#include "postcard/analysis/PlainWarnings.h"
#include "postcard/analysis/RegionSets.h"
#include "postcard/analysis/Warning.h"
#include "postcard/policy/Classes.h"
#include "postcard/policy/RuleCount.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace Postcard::Analysis {

using Policy::SampleField;

namespace {

// More earlier classes than these are all blamed, although some might not be needed: trying each
// one out takes time that grows with their square.
constexpr std::size_t mostTriedOut = 16;

std::string text(const Policy::NumberRange& range) {
   return range.low == range.high ? fmt::format("{}", range.low)
                                  : fmt::format("{}-{}", range.low, range.high);
}

class Finder {
 public:
   Finder(PacketSpace& space, const Policy::Policy& policy, const Circumstances& circumstances)
      : space_{space},
        policy_{policy},
        circumstances_{circumstances},
        classes_{classRegions(policy, circumstances, Reading::built)},
        residues_{space, classes_, circumstances.family} {}

   Warnings find() {
      space_.beginQuestion();
      for (std::size_t place = 0; place < classes_.size(); ++place) {
         if (classes_[place].regions.empty()) {
            continue; // nothing to take
         }
         const std::size_t before = warnings_.found.size();
         try {
            findAt(place);
         } catch (const LimitReached& limit) {
            warnings_.found.resize(before);
            undecided(place, limit);
         }
      }
      warnings_.add(plainWarnings(policy_, circumstances_));
      std::ranges::stable_sort(warnings_.found, {}, &Warning::location);
      return std::move(warnings_);
   }

 private:
   void undecided(std::size_t place, const LimitReached& limit) {
      if (!limit.timeIsUp()) {
         residues_.forget();
         space_.reset();
      }
      warnings_.notDecided.push_back(
            {policy_.name.text, circumstances_.family, classes_[place].which->name.text});
   }

   Warning& add(WarningCode code, std::size_t place, const Policy::Location& location,
                std::string text) {
      return warnings_.found.emplace_back(Warning{.code = code,
                                                  .policy = policy_.name.text,
                                                  .family = circumstances_.family,
                                                  .className = classes_[place].which->name.text,
                                                  .location = location,
                                                  .blamed = {},
                                                  .witness = {},
                                                  .text = std::move(text)});
   }

   void findAt(std::size_t place) {
      const Policy::Class& each = *classes_[place].which;
      const PacketSet all = residues_.alone(place);
      const PacketSet left = residues_.left(all, place);
      if (left.empty()) {
         const U64 entries =
               ruleCount(*each.filter(circumstances_.family), circumstances_.tcpFlags);
         shadowed(place, {each.name.location, "can never match", entries}, all, {},
                  residues_.takers(all, place));
         return;
      }
      for (const Policy::ProtocolMatch& match : each.filter(circumstances_.family)->protocols) {
         findInProtocol(place, match, left);
      }
      findRates(place, left);
      findLoop(place, left);
      findOverlaps(place, left);
   }

   // ---- Shadows ----

   // A part of a class that can never match.
   struct Dead {
      Policy::Location location;
      std::string text;
      U64 entries; // that it takes
   };

   // Warns about `part` of the class at `place`, which nothing reaches: `own` takes from it within
   // the class, and the classes at `takers` the rest.
   void shadowed(std::size_t place, const Dead& dead, const PacketSet& part,
                 std::vector<Blamed> own, std::vector<std::size_t> takers) {
      const auto witness = space_.packetIn(part, circumstances_.family);
      if (own.empty()) {
         takers = needed(part, std::move(takers));
      }
      Warning& warning = add(WarningCode::shadowed, place, dead.location,
                             fmt::format("{}: all its packets are taken before", dead.text));
      warning.saves = dead.entries;
      warning.blamed = std::move(own);
      for (const std::size_t taker : takers) {
         const Policy::Name& name = classes_[taker].which->name;
         warning.blamed.push_back({fmt::format("class '{}'", name.text), name.location});
      }
      warning.witness = witness;
   }

   // Those of `takers` that are enough to take all of `part`: a single one if possible. By place.
   std::vector<std::size_t> needed(const PacketSet& part, std::vector<std::size_t> takers) {
      std::ranges::sort(takers);
      for (const std::size_t taker : takers) {
         if ((part - residues_.alone(taker)).empty()) {
            return {taker};
         }
      }
      for (std::size_t i = takers.size(); i-- > 0 && takers.size() <= mostTriedOut;) {
         std::vector<std::size_t> others = takers;
         others.erase(others.begin() + static_cast<std::ptrdiff_t>(i));
         PacketSet rest = part;
         for (const std::size_t other : others) {
            rest -= residues_.alone(other);
         }
         if (rest.empty()) {
            takers = std::move(others);
         }
      }
      return takers;
   }

   void findInProtocol(std::size_t place, const Policy::ProtocolMatch& match,
                       const PacketSet& left) {
      const PacketSet protocol = space_.range(Field::protocol, match.low, match.high);
      const PacketSet part = residues_.alone(place) & protocol;
      if (part.empty()) {
         return; // no entry of it has a range
      }
      if ((left & protocol).empty()) {
         shadowed(place,
                  {match.location,
                   fmt::format("protocol {} can never match", Packets::protocolName(match.low)),
                   ruleCount(match, circumstances_.tcpFlags)},
                  part, {}, residues_.takers(part, place));
         return;
      }
      std::vector<std::pair<PacketSet, Blamed>> before;
      for (const Policy::PortEntry& entry : match.ports) {
         if (!entry.source.empty() || !entry.destination.empty()) {
            findInEntry(place, match, entry, {part, left}, before);
         }
      }
   }

   PacketSet setOf(Field field, const std::vector<Policy::NumberRange>& ranges) const {
      PacketSet set = ranges.empty() ? space_.anything() : PacketSet{};
      for (const Policy::NumberRange& range : ranges) {
         set |= space_.range(field, range.low, range.high);
      }
      return set;
   }

   struct Sets {
      PacketSet part; // what something takes
      PacketSet left; // what the earlier classes leave
   };

   // `sets.part` is what the entry's protocol takes, `before` what the entries before it take; adds
   // this one.
   void findInEntry(std::size_t place, const Policy::ProtocolMatch& match,
                    const Policy::PortEntry& entry, const Sets& sets,
                    std::vector<std::pair<PacketSet, Blamed>>& before) {
      const PacketSet ports = setOf(Field::sourcePort, entry.source) &
                              setOf(Field::destinationPort, entry.destination);
      const Sets mine{sets.part & ports, sets.left};
      const U64 entries = ruleCount(entry, match, circumstances_.tcpFlags);
      if (!warnIfTaken(place, {entry.location, "this port entry can never match", entries}, mine,
                       before)) {
         findInRanges(place, Field::sourcePort, entry.source, entries / blockCount(entry.source),
                      mine, before);
         findInRanges(place, Field::destinationPort, entry.destination,
                      entries / blockCount(entry.destination), mine, before);
      }
      before.push_back({ports, {"an earlier port entry", entry.location}});
   }

   // Rules are made of the ranges of one side in the order of their bounds, whatever the order in
   // the file. Each block of a range makes `entriesPerBlock` entries.
   void findInRanges(std::size_t place, Field field, std::vector<Policy::NumberRange> ranges,
                     U64 entriesPerBlock, const Sets& sets,
                     std::vector<std::pair<PacketSet, Blamed>> before) {
      std::ranges::sort(ranges, {}, [](const auto& range) {
         return std::pair{range.low, range.high};
      });
      const char* side = field == Field::sourcePort ? "source" : "destination";
      for (const Policy::NumberRange& range : ranges) {
         const PacketSet ports = space_.range(field, range.low, range.high);
         warnIfTaken(place,
                     {range.location, fmt::format("{} ports {} can never match", side, text(range)),
                      blockCount(range) * entriesPerBlock},
                     {sets.part & ports, sets.left}, before);
         before.push_back({ports, {fmt::format("{} ports {}", side, text(range)), range.location}});
      }
   }

   // Warns when no packet of `sets.part` is left for the class after `before` and the earlier
   // classes.
   bool warnIfTaken(std::size_t place, const Dead& dead, const Sets& sets,
                    const std::vector<std::pair<PacketSet, Blamed>>& before) {
      PacketSet rest = sets.part;
      std::vector<Blamed> own;
      for (const auto& [set, blamed] : before) {
         PacketSet smaller = rest - set;
         if (!(smaller == rest)) {
            own.push_back(blamed);
         }
         rest = std::move(smaller);
      }
      if (!(rest & sets.left).empty()) {
         return false;
      }
      shadowed(place, dead, sets.part, std::move(own), residues_.takers(rest, place));
      return true;
   }

   // ---- Rates ----

   // Sample bits that do not count, or that some packets satisfy more often than others.
   void findRates(std::size_t place, const PacketSet& left) {
      const Policy::Class& each = *classes_[place].which;
      const auto& sample = each.filter(circumstances_.family)->sample;
      if (!sample) {
         return;
      }
      const PacketSet chosen = Analysis::setOf(space_, {sample->field, sample->data, sample->mask});
      const auto warn = [&](const PacketSet& shown, std::string text) {
         const auto witness = space_.packetIn(shown, circumstances_.family);
         add(WarningCode::rate, place, sample->location, std::move(text)).witness = witness;
      };
      if (actionOf(each, Policy::ActionKind::sample) == nullptr) {
         warn(left - chosen, Policy::samples(each)
                                   ? "the sample bits do not count: sample-all takes every packet"
                                   : "the sample bits do not count: the class does not sample");
         return;
      }
      if (actionOf(each, Policy::ActionKind::sampleAll) != nullptr) {
         std::vector<Region> all = classes_[place].regions;
         for (Region& region : all) {
            region.sample.reset();
         }
         warn(residues_.left(Analysis::setOf(space_, all) - chosen, place),
              "not every packet is sampled: beside sample, sample-all does not count");
      }
      const PacketSet udp = space_.bits(Field::protocol, Packets::protocolUdp, 0xff);
      const PacketSet zero = left & udp & space_.bits(Field::checksum, 0, 0xffff);
      if (circumstances_.family == Policy::Family::ipv4 && sample->field == SampleField::checksum &&
          sample->data == 0 && !zero.empty()) {
         warn(zero, "every UDP packet without a checksum is sampled, because it carries 0");
      }
   }

   // ---- Loops ----

   // Reports that are sampled make further reports.
   void findLoop(std::size_t place, const PacketSet& left) {
      const Policy::Collector* collector = circumstances_.collector;
      const auto family = circumstances_.family == Policy::Family::ipv4
                                ? Orlix::AddressFamily::ipv4
                                : Orlix::AddressFamily::ipv6;
      const Policy::Class& each = *classes_[place].which;
      if (collector == nullptr || collector->address.family() != family || !Policy::samples(each)) {
         return;
      }
      const PacketSet reports =
            left & space_.bits(Field::protocol, Packets::protocolUdp, 0xff) &
            space_.addresses(Side::destination, blockOf(collector->address)) &
            space_.range(Field::destinationPort, collector->port, collector->port);
      if (reports.empty()) {
         return;
      }
      const auto witness = space_.packetIn(reports, circumstances_.family);
      Warning& warning = add(WarningCode::loop, place, each.name.location,
                             "samples the telemetry's own reports, which make further reports");
      warning.blamed = {{"the collector", collector->location}};
      warning.witness = witness;
   }

   // ---- Overlaps ----

   // Warns later classes whose packets this one takes and treats otherwise. What an ACL does with a
   // packet is to sample it or not: no rule rewrites the DSCP, and the sample bits belong to what a
   // class matches.
   void findOverlaps(std::size_t place, const PacketSet& left) {
      const bool sampled = Policy::samples(*classes_[place].which);
      for (std::size_t later = place + 1; later < classes_.size() && !warnings_.moreOverlaps;
           ++later) {
         if (Policy::samples(*classes_[later].which) == sampled) {
            continue;
         }
         const auto witness = takenFrom(place, later, left);
         if (!witness) {
            continue;
         }
         if (overlaps_++ == mostOverlaps) {
            warnings_.moreOverlaps = true;
            return;
         }
         const Policy::Name& winner = classes_[place].which->name;
         const Policy::Name& loser = classes_[later].which->name;
         Warning& warning =
               add(WarningCode::overlap, later, loser.location,
                   sampled ? "not sampled, but an earlier class samples some of its packets"
                           : "sampled, but an earlier class takes some of its packets unsampled");
         warning.blamed.push_back({fmt::format("class '{}'", winner.text), winner.location});
         warning.witness = witness;
      }
   }

   // A packet that class `place` gets and class `later` would take.
   std::optional<Packets::Packet> takenFrom(std::size_t place, std::size_t later,
                                            const PacketSet& left) {
      auto packet =
            commonPacket(classes_[place].regions, classes_[later].regions, circumstances_.family);
      if (!packet || firstMatch(classes_, *packet) == place) {
         return packet;
      }
      return space_.packetIn(left & residues_.alone(later), circumstances_.family);
   }

   PacketSpace& space_;
   const Policy::Policy& policy_;
   const Circumstances circumstances_;
   const std::vector<ClassRegions> classes_;
   Residues residues_;
   std::size_t overlaps_ = 0;
   Warnings warnings_;
};

} // namespace

Warnings warningsOf(PacketSpace& space, const Policy::Policy& policy,
                    const Circumstances& circumstances) {
   return Finder{space, policy, circumstances}.find();
}

} // namespace Postcard::Analysis
