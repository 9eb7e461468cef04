// `firstMatch`: the first rule of an ACL that a packet matches, read from the attributes of the
// rules one by one, without any of the words and masks of the real thing.
#pragma once

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/PostcardTelemetryAclConfig.h"
#include "postcard/packets/Packet.h"

#include <optional>
#include <span>

namespace RulesClientTest {

using OruPostcardTelemetry::RuleConfig;
using OruPostcardTelemetry::RuleFilter;
using Postcard::Packets::Packet;

inline bool bitAt(std::span<const U8> bytes, unsigned bit) {
   return (U32{bytes[bit / 8]} >> (7 - bit % 8) & 1U) != 0;
}

inline bool inPrefix(const Orlix::IpGenPrefix& prefix, std::span<const U8> address) {
   for (unsigned bit = 0; bit < prefix.length(); ++bit) {
      if (bitAt(prefix.address(), bit) != bitAt(address, bit)) {
         return false;
      }
   }
   return true;
}

inline bool portMatches(bool valid, const OruPostcardTelemetry::L4PortDataMask& match,
                        const std::optional<U16>& port) {
   return !valid ||
          (port && (*port & match.l4PortMask()) == (match.l4PortData() & match.l4PortMask()));
}

inline bool flagsMatch(const Classification::TcpFlagAndMask& match,
                       const std::optional<U8>& flags) {
   const U8 mask = match.tcpFlagMask().value();
   return mask == 0 || (flags && (*flags & mask) == (match.tcpFlag().value() & mask));
}

inline bool sampleMatches(const Classification::TcpUdpCheckSumOrIpId& match, const Packet& packet) {
   const std::optional<U16>& field = match.version() == Classification::sampleVersionIpId
                                           ? packet.identification
                                           : packet.checksum;
   return match.mask() == 0 ||
          (field && (U32{*field} & match.mask()) == (match.data() & match.mask()));
}

inline bool matches(const RuleFilter& filter, const Packet& packet) {
   return inPrefix(filter.source(), packet.sourceAddress()) &&
          inPrefix(filter.destination(), packet.destinationAddress()) &&
          filter.proto().value() == packet.protocol &&
          portMatches(filter.sportDataMaskValid(), filter.sportDataMask(), packet.sourcePort) &&
          portMatches(filter.dportDataMaskValid(), filter.dportDataMask(),
                      packet.destinationPort) &&
          flagsMatch(filter.tcpFlagAndMask(), packet.tcpFlags) &&
          (filter.sampleDataAndMask() == nullptr ||
           sampleMatches(*filter.sampleDataAndMask(), packet));
}

inline std::optional<U32> firstMatch(const OruPostcardTelemetry::PostcardTelemetryAclConfig& acl,
                                     const Packet& packet) {
   for (const auto& rule : acl.ruleByIndex()) {
      if (matches(*rule.value()->ruleFilter(), packet)) {
         return rule.key();
      }
   }
   return std::nullopt;
}

} // namespace RulesClientTest
