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

// The mask of the upper `length` of 64 bits; all of them for lengths above 64.
U64 upperBits(unsigned length) {
   return length == 0 ? 0 : ~U64{0} << (64 - std::min(length, 64U));
}

} // namespace

RuleWords RuleReader::words() {
   if (rule_.ruleFilter() == nullptr) {
      fail("has no filter");
   }
   const RuleFilter& filter = *rule_.ruleFilter();
   addresses(filter.source(), filter.destination());
   port(filter.sportDataMaskValid(), filter.sportDataMask(), sourcePortAt);
   port(filter.dportDataMaskValid(), filter.dportDataMask(), destinationPortAt);
   if (const U8 mask = filter.tcpFlagAndMask().tcpFlagMask().value(); mask != 0) {
      words_.require(portWord(family_), hasTcpFlags);
      words_.field(portWord(family_), tcpFlagsAt, filter.tcpFlagAndMask().tcpFlag().value(), mask);
   }
   if (filter.sampleDataAndMask() != nullptr && filter.sampleDataAndMask()->mask() != 0) {
      sample(*filter.sampleDataAndMask());
   }
   return words_;
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

void RuleReader::addresses(const IpGenPrefix& source, const IpGenPrefix& destination) {
   checkFamily("source", source);
   checkFamily("destination", destination);
   if (family_ == AddressFamily::ipv4) {
      words_.field(0, 0, bigEndian(source.address()) << 32, upperBits(source.length()));
      words_.field(0, 0, bigEndian(destination.address()), upperBits(destination.length()) >> 32);
      return;
   }
   address(0, source);
   address(2, destination);
}

void RuleReader::address(std::size_t word, const IpGenPrefix& prefix) {
   if (prefix.length() == 0) {
      return; // also "0.0.0.0/0", whose address is of the other size
   }
   const unsigned length = prefix.length();
   words_.field(word, 0, bigEndian(prefix.address().first(8)), upperBits(length));
   words_.field(word + 1, 0, bigEndian(prefix.address().last(8)),
                upperBits(length - std::min(length, 64U)));
}

void RuleReader::port(bool valid, const L4PortDataMask& match, unsigned at) {
   if (valid) {
      words_.require(portWord(family_), hasPorts);
      words_.field(portWord(family_), at, match.l4PortData(), match.l4PortMask());
   }
}

void RuleReader::sample(const TcpUdpCheckSumOrIpId& match) {
   const bool isChecksum = match.version() == Classification::sampleVersionChecksum;
   if (!isChecksum && match.version() != Classification::sampleVersionIpId) {
      fail(fmt::format("samples by the unknown field {}", match.version()));
   }
   words_.require(sampleWord(family_), isChecksum ? hasChecksum : hasIdentification);
   words_.field(sampleWord(family_), isChecksum ? checksumAt : identificationAt, match.data(),
                match.mask() & 0xffffU);
   // The compared fields have 16 bits; the bits above read as zero.
   if ((match.data() & match.mask()) > 0xffffU) {
      words_.require(sampleWord(family_), impossible);
   }
}

} // namespace Postcard::Classifier
