#include "postcard/classifier/RuleReader.h"

#include <fmt/format.h>

#include <algorithm>

namespace Postcard::Classifier {

using Classification::TcpUdpCheckSumOrIpId;
using Orlix::AddressFamily;
using Orlix::IpGenPrefix;
using OruPostcardTelemetry::L4PortDataMask;
using OruPostcardTelemetry::RuleAction;
using OruPostcardTelemetry::RuleFilter;

namespace {

FieldMatch<U16> port(bool valid, const L4PortDataMask& match) {
   return valid ? FieldMatch<U16>{true, match.l4PortData(), match.l4PortMask()} : FieldMatch<U16>{};
}

} // namespace

RuleMatch RuleReader::match() const {
   if (rule_.ruleFilter() == nullptr) {
      fail("has no filter");
   }
   const RuleFilter& filter = *rule_.ruleFilter();
   RuleMatch match;
   match.source = address("source", filter.source());
   match.destination = address("destination", filter.destination());
   match.protocol = filter.proto().value();
   match.sourcePort = port(filter.sportDataMaskValid(), filter.sportDataMask());
   match.destinationPort = port(filter.dportDataMaskValid(), filter.dportDataMask());
   if (const U8 mask = filter.tcpFlagAndMask().tcpFlagMask().value(); mask != 0) {
      match.tcpFlags = {true, filter.tcpFlagAndMask().tcpFlag().value(), mask};
   }
   if (filter.sampleDataAndMask() != nullptr && filter.sampleDataAndMask()->mask() != 0) {
      sample(match, *filter.sampleDataAndMask());
   }
   return match;
}

AclTable::Entry RuleReader::entry(U32 index) const {
   if (rule_.ruleAction() == nullptr) {
      fail("has no action");
   }
   const RuleAction& action = *rule_.ruleAction();
   if (action.action(RuleAction::policeAction)) {
      fail("asks for policing, which is not supported");
   }
   const auto& dscp = action.dscpDataAndMask();
   // A code point has six bits.
   const unsigned mask = action.action(RuleAction::setDscpAction) ? dscp.dscpMask() & 0x3fU : 0;
   return {.index = index,
           .rule = rule_.name(),
           .sampled = action.action(RuleAction::sampleAction),
           .dscpData = static_cast<U8>(dscp.dscpData().value() & 0x3fU),
           .dscpMask = static_cast<U8>(mask)};
}

void RuleReader::fail(const std::string& what) const {
   throw AclError{fmt::format("rule '{}' of {} {}", rule_.name().view(), acl_.view(), what)};
}

void RuleReader::checkFamily(const char* side, const IpGenPrefix& prefix) const {
   if (prefix == OruPostcardTelemetry::anyPrefix() || prefix.family() == family_) {
      return;
   }
   if (prefix.family() == AddressFamily::none) {
      fail(fmt::format("has no {} prefix", side));
   }
   fail(fmt::format("has the {} prefix {}, which is not {}", side, prefix.stringValue(),
                    family_ == AddressFamily::ipv4 ? "IPv4" : "IPv6"));
}

Prefix RuleReader::address(const char* side, const IpGenPrefix& prefix) const {
   checkFamily(side, prefix);
   return prefixOf(prefix);
}

void RuleReader::sample(RuleMatch& match, const TcpUdpCheckSumOrIpId& asked) const {
   const bool isChecksum = asked.version() == Classification::sampleVersionChecksum;
   if (!isChecksum && asked.version() != Classification::sampleVersionIpId) {
      fail(fmt::format("samples by the unknown field {}", asked.version()));
   }
   (isChecksum ? match.checksum : match.identification) = {true, static_cast<U16>(asked.data()),
                                                           static_cast<U16>(asked.mask())};
   // The compared fields have 16 bits; the bits above read as zero.
   match.impossible = (asked.data() & asked.mask()) > 0xffffU;
}

} // namespace Postcard::Classifier
