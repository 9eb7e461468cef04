#include "postcard/advice/Advice.h"

#include "postcard/policy/Classes.h"
#include "postcard/policy/RuleCount.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <utility>

namespace Postcard::Advice {

namespace {

using Policy::NumberRange;
using Ranges = std::vector<NumberRange>;

// The fewest ranges with the same ports, by port.
Ranges merged(Ranges ranges) {
   std::ranges::sort(ranges, {}, &NumberRange::low);
   Ranges result;
   for (const NumberRange& range : ranges) {
      if (!result.empty() && range.low <= result.back().high + 1) {
         result.back().high = std::max(result.back().high, range.high);
      } else {
         result.push_back(range);
      }
   }
   return result;
}

std::string text(const Ranges& ranges) {
   constexpr std::size_t most = 8;
   std::vector<std::string> texts;
   for (const NumberRange& range : ranges) {
      if (texts.size() == most) {
         texts.push_back(fmt::format("and {} more", ranges.size() - most));
         break;
      }
      texts.push_back(range.low == range.high ? fmt::format("{}", range.low)
                                              : fmt::format("{}-{}", range.low, range.high));
   }
   return fmt::format("{}", fmt::join(texts, ", "));
}

// The ports of a range list, to compare lists by what they match.
std::vector<std::pair<U16, U16>> portsOf(const Ranges& ranges) {
   std::vector<std::pair<U16, U16>> ports;
   for (const NumberRange& range : merged(ranges)) {
      ports.emplace_back(range.low, range.high);
   }
   return ports;
}

using Side = Ranges Policy::PortEntry::*;

constexpr Side sides[] = {&Policy::PortEntry::source, &Policy::PortEntry::destination};

const char* nameOf(Side side) {
   return side == &Policy::PortEntry::source ? "source" : "destination";
}

Side otherThan(Side side) {
   return side == sides[0] ? sides[1] : sides[0];
}

class MergeFinder {
 public:
   MergeFinder(const Policy::Policy& policy, Policy::Family family, bool tcpFlags)
      : policy_{policy}, family_{family}, tcpFlags_{tcpFlags} {}

   std::vector<Advice> find() {
      for (const Policy::Class* each : classesInOrder(policy_, family_)) {
         for (const Policy::ProtocolMatch& match : each->filter(family_)->protocols) {
            findIn(*each, match);
         }
      }
      return std::move(found_);
   }

 private:
   void findIn(const Policy::Class& each, const Policy::ProtocolMatch& match) {
      for (const Policy::PortEntry& entry : match.ports) {
         for (const Side side : sides) {
            findInSide(each, match, entry, side);
         }
      }
      for (const Side side : sides) {
         findAmongEntries(each, match, side);
      }
   }

   void add(const Policy::Class& each, const Policy::Location& location, std::string text,
            U64 before, U64 after) {
      if (after < before) {
         found_.push_back({Kind::merge, policy_.name.text, family_, each.name.text, location,
                           std::move(text), before - after});
      }
   }

   U64 entriesOf(const Policy::PortEntry& entry, const Policy::ProtocolMatch& match) const {
      return ruleCount(entry, match, tcpFlags_);
   }

   // Ranges of one side that overlap or follow each other.
   void findInSide(const Policy::Class& each, const Policy::ProtocolMatch& match,
                   const Policy::PortEntry& entry, Side side) {
      const Ranges& ranges = entry.*side;
      if (ranges.size() < 2) {
         return;
      }
      Policy::PortEntry better = entry;
      better.*side = merged(ranges);
      add(each, ranges.front().location,
          fmt::format("{} ports {} can be written as {}", nameOf(side), text(ranges),
                      text(better.*side)),
          entriesOf(entry, match), entriesOf(better, match));
   }

   // Entries with the same ports on the other side, once each of them is merged.
   void findAmongEntries(const Policy::Class& each, const Policy::ProtocolMatch& match, Side side) {
      const Side other = otherThan(side);
      std::map<std::vector<std::pair<U16, U16>>, std::vector<Policy::PortEntry>> alike;
      for (const Policy::PortEntry& entry : match.ports) {
         if (!(entry.*side).empty()) {
            Policy::PortEntry better = entry;
            better.*side = merged(entry.*side);
            better.*other = merged(entry.*other);
            alike[portsOf(entry.*other)].push_back(std::move(better));
         }
      }
      for (const auto& [ports, entries] : alike) {
         if (entries.size() > 1) {
            findInGroup(each, match, entries, side);
         }
      }
   }

   // `entries` have the same ports on the other side.
   void findInGroup(const Policy::Class& each, const Policy::ProtocolMatch& match,
                    const std::vector<Policy::PortEntry>& entries, Side side) {
      Policy::PortEntry whole = entries.front();
      U64 before = 0;
      std::vector<std::size_t> lines;
      for (const Policy::PortEntry& entry : entries) {
         std::ranges::copy(entry.*side, std::back_inserter(whole.*side));
         before += entriesOf(entry, match);
         lines.push_back(entry.location.line);
      }
      whole.*side = merged(whole.*side);
      add(each, entries[1].location,
          fmt::format("port entries of the lines {} differ in {} ports only: together {}",
                      fmt::join(lines, ", "), nameOf(side), text(whole.*side)),
          before, entriesOf(whole, match));
   }

   const Policy::Policy& policy_;
   const Policy::Family family_;
   const bool tcpFlags_;
   std::vector<Advice> found_;
};

Kind kindOf(Analysis::WarningCode code) {
   return code == Analysis::WarningCode::shadowed ? Kind::remove : Kind::neighbour;
}

} // namespace

std::vector<Advice> mergesOf(const Policy::Policy& policy, Policy::Family family, bool tcpFlags) {
   return MergeFinder{policy, family, tcpFlags}.find();
}

std::vector<Advice> adviceOf(std::vector<Advice> merges, const Analysis::Warnings& warnings) {
   std::vector<Advice> advice = std::move(merges);
   for (const Analysis::Warning& warning : warnings.found) {
      if (warning.saves > 0 && warning.family) {
         advice.push_back({kindOf(warning.code), warning.policy, *warning.family, warning.className,
                           warning.location, warning.text, warning.saves});
      }
   }
   std::ranges::stable_sort(advice, std::ranges::greater{}, &Advice::saves);
   return advice;
}

} // namespace Postcard::Advice
