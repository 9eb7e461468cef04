#include "postcard/analysis/PlainWarnings.h"

#include "postcard/policy/Classes.h"
#include "postcard/policy/RuleCount.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace Postcard::Analysis {

namespace {

using Policy::NumberRange;

// A neighbour is worth a word when it halves the blocks of a range and saves this many.
constexpr U64 blocksWorthAWord = 4;

struct Neighbour {
   NumberRange range;
   U64 blocks;
};

// The cheapest range that is one port wider or narrower at one end; the first one of several.
Neighbour cheapestNeighbour(const NumberRange& range) {
   Neighbour best{range, blockCount(range)};
   const auto consider = [&](int low, int high) {
      if (low >= 0 && high <= 65535 && low <= high) {
         const NumberRange other{static_cast<U16>(low), static_cast<U16>(high), range.location};
         if (const U64 blocks = blockCount(other); blocks < best.blocks) {
            best = {other, blocks};
         }
      }
   };
   consider(range.low - 1, range.high);
   consider(range.low, range.high + 1);
   consider(range.low + 1, range.high);
   consider(range.low, range.high - 1);
   return best;
}

class PlainFinder {
 public:
   PlainFinder(const Policy::Policy& policy, const Circumstances& circumstances)
      : policy_{policy}, circumstances_{circumstances} {}

   Warnings find() {
      const auto classes = classesInOrder(policy_, circumstances_.family);
      if (classes.empty() && !policy_.classes.empty()) {
         add(WarningCode::empty, "", policy_.name.location, "no class takes part in the family");
      }
      for (const Policy::Class* each : classes) {
         const Policy::Filter& filter = *each->filter(circumstances_.family);
         if (ruleCount(filter, circumstances_.tcpFlags) == 0) {
            add(WarningCode::empty, each->name.text, filter.location,
                "makes no rule, because its port entries have no ranges");
         }
         for (const Policy::ProtocolMatch& match : filter.protocols) {
            findCost(*each, match);
         }
      }
      return std::move(warnings_);
   }

 private:
   void add(WarningCode code, const std::string& className, const Policy::Location& location,
            std::string text) {
      warnings_.found.push_back(Warning{.code = code,
                                        .policy = policy_.name.text,
                                        .family = circumstances_.family,
                                        .className = className,
                                        .location = location,
                                        .blamed = {},
                                        .witness = {},
                                        .text = std::move(text)});
   }

   void findCost(const Policy::Class& each, const Policy::ProtocolMatch& match) {
      const U64 flags =
            circumstances_.tcpFlags ? std::max<std::size_t>(match.tcpFlags.size(), 1) : 1;
      for (const Policy::PortEntry& entry : match.ports) {
         findCost(each, entry.source, blockCount(entry.destination) * flags);
         findCost(each, entry.destination, blockCount(entry.source) * flags);
      }
   }

   // `entriesPerBlock` is how many entries each block of a range makes.
   void findCost(const Policy::Class& each, const std::vector<NumberRange>& ranges,
                 U64 entriesPerBlock) {
      for (const NumberRange& range : ranges) {
         const U64 blocks = blockCount(range);
         const Neighbour best = cheapestNeighbour(range);
         const U64 saved = blocks - best.blocks;
         if (saved >= blocksWorthAWord && best.blocks * 2 <= blocks) {
            add(WarningCode::cost, each.name.text, range.location,
                fmt::format("{}-{} takes {} blocks, {}-{} takes {}: {} entries fewer", range.low,
                            range.high, blocks, best.range.low, best.range.high, best.blocks,
                            saved * entriesPerBlock));
            warnings_.found.back().saves = saved * entriesPerBlock;
         }
      }
   }

   const Policy::Policy& policy_;
   const Circumstances circumstances_;
   Warnings warnings_;
};

} // namespace

Warnings plainWarnings(const Policy::Policy& policy, const Circumstances& circumstances) {
   return PlainFinder{policy, circumstances}.find();
}

Warnings warningsOf(const Policy::Policy& policy) {
   Warnings warnings;
   const auto add = [&](WarningCode code, const std::string& className,
                        const Policy::Location& location, std::string text) {
      warnings.found.push_back(Warning{.code = code,
                                       .policy = policy.name.text,
                                       .family = {},
                                       .className = className,
                                       .location = location,
                                       .blamed = {},
                                       .witness = {},
                                       .text = std::move(text)});
   };
   if (policy.classes.empty()) {
      add(WarningCode::empty, "", policy.name.location, "has no class");
   }
   for (const Policy::Class& each : policy.classes) {
      if (!each.ipv4 && !each.ipv6) {
         add(WarningCode::empty, each.name.text, each.name.location, "takes part in no family");
      } else if (const auto* mark = actionOf(each, Policy::ActionKind::setDscp)) {
         add(WarningCode::dscp, each.name.text, mark->location,
             fmt::format("no rule will carry the DSCP {}", mark->dscp));
      }
   }
   return warnings;
}

} // namespace Postcard::Analysis
