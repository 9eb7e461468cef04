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
U64 flagsOf(const ProtocolMatch& match, bool tcpFlags) {
   return tcpFlags ? std::max<U64>(match.tcpFlags.size(), 1) : 1;
}

} // namespace

U64 blockCount(const NumberRange& range) {
   std::vector<Orlix::RangeMaskGen<U16>::Entry> blocks;
   Orlix::RangeMaskGen<U16>::run(range.low, range.high, blocks);
   return blocks.size();
}

U64 blockCount(const std::vector<NumberRange>& side) {
   U64 blocks = 0;
   for (const NumberRange& range : side) {
      blocks += blockCount(range);
   }
   return std::max<U64>(blocks, 1);
}

// An entry without any range makes no rule.
U64 ruleCount(const PortEntry& entry, const ProtocolMatch& match, bool tcpFlags) {
   if (entry.source.empty() && entry.destination.empty()) {
      return 0;
   }
   return product(product(blockCount(entry.source), blockCount(entry.destination)),
                  flagsOf(match, tcpFlags));
}

U64 ruleCount(const ProtocolMatch& match, bool tcpFlags) {
   if (match.ports.empty()) {
      return flagsOf(match, tcpFlags);
   }
   U64 count = 0;
   for (const PortEntry& entry : match.ports) {
      count = std::min(count + ruleCount(entry, match, tcpFlags), mostRules);
   }
   return count;
}

// For a filter that names neither TCP nor UDP, the helper makes one rule for each of them, without
// ports and flags.
U64 ruleCount(const Filter& filter, bool tcpFlags) {
   const ProtocolMatch* tcpMatch = findProtocol(filter, Classification::protocolTcp);
   const ProtocolMatch* udpMatch = findProtocol(filter, Classification::protocolUdp);
   if (tcpMatch == nullptr && udpMatch == nullptr) {
      return 2;
   }
   const U64 tcpCount = tcpMatch == nullptr ? 0 : ruleCount(*tcpMatch, tcpFlags);
   const U64 udpCount = udpMatch == nullptr ? 0 : ruleCount(*udpMatch, tcpFlags);
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
