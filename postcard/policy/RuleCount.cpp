// Counting rules without making them. See `PolicyFileRules.h`.

#include "postcard/policy/RuleCount.h"

#include <algorithm>
#include <bit>

namespace Postcard::Policy {

namespace {

constexpr std::uint8_t tcp = 6;
constexpr std::uint8_t udp = 17;

// Bounded before it can wrap.
std::uint64_t product(std::uint64_t left, std::uint64_t right) {
   if (left == 0 || right == 0) {
      return 0;
   }
   return left > mostRules / right ? mostRules : std::min(left * right, mostRules);
}

std::uint64_t blocksOf(const std::vector<NumberRange>& ranges) {
   std::uint64_t blocks = 0;
   for (const NumberRange& range : ranges) {
      blocks += blockCount(range);
   }
   return blocks;
}

// A side without ranges is not matched, so it multiplies by one; an entry without any makes none.
std::uint64_t entryCount(const PortEntry& entry) {
   if (entry.source.empty() && entry.destination.empty()) {
      return 0;
   }
   return product(std::max<std::uint64_t>(blocksOf(entry.source), 1),
                  std::max<std::uint64_t>(blocksOf(entry.destination), 1));
}

const ProtocolMatch* findProtocol(const Filter& filter, std::uint8_t number) {
   for (const ProtocolMatch& match : filter.protocols) {
      if (match.low == number && match.high == number) {
         return &match;
      }
   }
   return nullptr;
}

std::uint64_t protocolCount(const ProtocolMatch& match, bool tcpFlags) {
   const std::uint64_t flags =
         tcpFlags ? std::max<std::uint64_t>(match.tcpFlags.size(), 1) : std::uint64_t{1};
   if (match.ports.empty()) {
      return flags;
   }
   std::uint64_t count = 0;
   for (const PortEntry& entry : match.ports) {
      count = std::min(count + product(entryCount(entry), flags), mostRules);
   }
   return count;
}

} // namespace

// From low on, the largest block that is aligned to its size and ends within the range.
std::uint64_t blockCount(const NumberRange& range) {
   std::uint64_t count = 0;
   std::uint32_t low = range.low;
   const std::uint32_t end = std::uint32_t{range.high} + 1;
   while (low < end) {
      const std::uint32_t fitting = std::bit_floor(end - low);
      const std::uint32_t aligned = low == 0 ? fitting : low & (~low + 1);
      low += std::min(fitting, aligned);
      ++count;
   }
   return count;
}

// Without TCP and UDP among its protocols a filter makes one rule for each of the two.
std::uint64_t ruleCount(const Filter& filter, bool tcpFlags) {
   const ProtocolMatch* tcpMatch = findProtocol(filter, tcp);
   const ProtocolMatch* udpMatch = findProtocol(filter, udp);
   if (tcpMatch == nullptr && udpMatch == nullptr) {
      return 2;
   }
   const std::uint64_t tcpCount = tcpMatch == nullptr ? 0 : protocolCount(*tcpMatch, tcpFlags);
   const std::uint64_t udpCount = udpMatch == nullptr ? 0 : protocolCount(*udpMatch, tcpFlags);
   return std::min(tcpCount + udpCount, mostRules);
}

} // namespace Postcard::Policy
