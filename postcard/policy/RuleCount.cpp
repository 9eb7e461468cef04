#include "postcard/policy/RuleCount.h"

#include "Classification/ProtocolNumbers.h"
#include "Orlix/RangeMaskGen.h"
#include "postcard/policy/RefusedClasses.h"

#include <algorithm>

namespace Postcard::Policy {

namespace {

// The product, or `mostRules` when it is greater. Multiplying first could exceed 64 bits.
U64 product(U64 left, U64 right) {
   if (left == 0 || right == 0) {
      return 0;
   }
   return left > mostRules / right ? mostRules : std::min(left * right, mostRules);
}

U64 blocksOf(const std::vector<NumberRange>& ranges) {
   U64 blocks = 0;
   for (const NumberRange& range : ranges) {
      blocks += blockCount(range);
   }
   return blocks;
}

// A side without ranges is not compared, so it multiplies by 1. An entry without any range makes no
// rule.
U64 entryCount(const PortEntry& entry) {
   if (entry.source.empty() && entry.destination.empty()) {
      return 0;
   }
   return product(std::max<U64>(blocksOf(entry.source), 1),
                  std::max<U64>(blocksOf(entry.destination), 1));
}

// The match of exactly this protocol, or null. A range that contains the protocol does not count,
// because the helper refuses it.
const ProtocolMatch* findProtocol(const Filter& filter, U8 number) {
   for (const ProtocolMatch& match : filter.protocols) {
      if (match.low == number && match.high == number) {
         return &match;
      }
   }
   return nullptr;
}

// TCP-flag matches multiply for UDP as well: the helper refuses them there where hardware matches
// flags, so the result has no meaning then.
U64 protocolCount(const ProtocolMatch& match, bool tcpFlags) {
   const U64 flags = tcpFlags ? std::max<U64>(match.tcpFlags.size(), 1) : 1;
   if (match.ports.empty()) {
      return flags;
   }
   U64 count = 0;
   for (const PortEntry& entry : match.ports) {
      count = std::min(count + product(entryCount(entry), flags), mostRules);
   }
   return count;
}

} // namespace

U64 blockCount(const NumberRange& range) {
   std::vector<Orlix::RangeMaskGen<U16>::Entry> blocks;
   Orlix::RangeMaskGen<U16>::run(range.low, range.high, blocks);
   return blocks.size();
}

// For a filter that names neither TCP nor UDP, the helper makes one rule for each of them, without
// ports and flags.
U64 ruleCount(const Filter& filter, bool tcpFlags) {
   const ProtocolMatch* tcpMatch = findProtocol(filter, Classification::protocolTcp);
   const ProtocolMatch* udpMatch = findProtocol(filter, Classification::protocolUdp);
   if (tcpMatch == nullptr && udpMatch == nullptr) {
      return 2;
   }
   const U64 tcpCount = tcpMatch == nullptr ? 0 : protocolCount(*tcpMatch, tcpFlags);
   const U64 udpCount = udpMatch == nullptr ? 0 : protocolCount(*udpMatch, tcpFlags);
   return std::min(tcpCount + udpCount, mostRules);
}

U64 ruleCount(const PolicyFile& file) {
   U64 count = 0;
   for (const Policy& policy : file.policies) {
      for (const Family family : {Family::ipv4, Family::ipv6}) {
         if (!refusedClasses(policy, family, file.hardware).empty()) {
            continue;
         }
         for (const Class& item : policy.classes) {
            const Filter* filter = item.filter(family);
            count += filter == nullptr ? 0 : ruleCount(*filter, file.hardware.tcpFlags);
         }
      }
   }
   return count;
}

} // namespace Postcard::Policy
