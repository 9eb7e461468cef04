#include "Workload.h"

#include <random>
#include <set>
#include <utility>

namespace Bench {

namespace {

constexpr U8 tcp = 6;
constexpr U8 udp = 17;
constexpr U32 seed = 20240229; // any number will do, as long as it stays

// Numbers from `low` to `high`. Not a distribution of the library: those may differ from one to the
// next, and the workload must not.
U32 draw(std::mt19937& random, U32 low, U32 high) {
   return low + static_cast<U32>(random() % (high - low + 1));
}

// `count` different ranges of at most `widest` ports.
std::vector<PortRange> randomRanges(std::mt19937& random, std::size_t count, U32 widest) {
   std::set<std::pair<U16, U16>> ranges;
   while (ranges.size() < count) {
      const U32 width = draw(random, 1, widest);
      const U32 low = draw(random, 1, 65536 - width);
      ranges.emplace(static_cast<U16>(low), static_cast<U16>(low + width - 1));
   }
   std::vector<PortRange> result;
   for (const auto& [low, high] : ranges) {
      result.push_back({low, high});
   }
   return result;
}

// One random range in each of `count` equal parts of the port numbers, so that no two meet and
// every pair of blocks has a name of its own.
std::vector<PortRange> rangesApart(std::mt19937& random, std::size_t count) {
   std::vector<PortRange> result;
   const U32 part = 65536 / static_cast<U32>(count);
   for (U32 begin = 0; result.size() < count; begin += part) {
      const U32 low = draw(random, begin, begin + part / 2 - 1);
      const U32 high = draw(random, begin + part / 2, begin + part - 1);
      result.push_back({static_cast<U16>(low), static_cast<U16>(high)});
   }
   return result;
}

ClassInput namedClass(std::string name, std::vector<U8> protocols) {
   return {std::move(name), "10.0.0.0/8", "192.0.2.0/24", {}, {}, std::move(protocols)};
}

} // namespace

Workload fullRanges() {
   ClassInput input = namedClass("checkout", {tcp, udp});
   input.sources = {{1, 65534}};
   input.destinations = {{1, 65534}};
   return {"W1", {input}};
}

Workload manyClasses(std::size_t classes) {
   std::mt19937 random{seed};
   Workload workload{"W2", {}};
   for (std::size_t number = 0; number < classes; ++number) {
      ClassInput input = namedClass("class-" + std::to_string(number), {tcp});
      input.sources = randomRanges(random, 10, 8);
      input.destinations = randomRanges(random, 10, 8);
      workload.classes.push_back(input);
   }
   return workload;
}

Workload wideClass(std::size_t ranges) {
   std::mt19937 random{seed};
   ClassInput input = namedClass("checkout", {tcp, udp});
   input.sources = rangesApart(random, ranges);
   input.destinations = rangesApart(random, ranges);
   return {"W3", {input}};
}

Workload ofSize(std::size_t rules) {
   std::mt19937 random{seed};
   std::size_t sources = 1;
   while (sources * sources * 2 < rules) {
      ++sources;
   }
   while (rules / 2 % sources != 0) {
      ++sources;
   }
   ClassInput input = namedClass("checkout", {tcp, udp});
   input.sources = randomRanges(random, sources, 1);
   input.destinations = randomRanges(random, rules / 2 / sources, 1);
   return {std::to_string(rules), {input}};
}

std::vector<PortBlock> cut(const std::vector<PortRange>& ranges) {
   std::vector<PortBlock> blocks;
   for (const PortRange& range : ranges) {
      for (U32 low = range.low; low <= range.high;) {
         U32 size = 1;
         while (low % (size * 2) == 0 && low + size * 2 - 1 <= range.high) {
            size *= 2;
         }
         blocks.push_back({static_cast<U16>(low), static_cast<U16>(0x10000U - size)});
         low += size;
      }
   }
   return blocks;
}

std::size_t ruleCount(const Workload& workload) {
   std::size_t count = 0;
   for (const ClassInput& input : workload.classes) {
      count += cut(input.sources).size() * cut(input.destinations).size() * input.protocols.size();
   }
   return count;
}

} // namespace Bench
