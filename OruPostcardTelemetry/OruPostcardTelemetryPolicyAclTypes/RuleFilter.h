// `RuleFilter`: which packets a rule matches: those that satisfy every match of the filter that is
// in force. Relies on the classification library and on the prefixes of `Orlix`.
#pragma once

#include "Classification/TcpFlagAndMask.h"
#include "Classification/TcpUdpCheckSumOrIpId.h"
#include "Kiv/Entity.h"
#include "Kiv/String.h"
#include "Orlix/IpGenPrefix.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/L4Port.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/Protocol.h"

namespace OruPostcardTelemetry {

// The prefix "0.0.0.0/0", which stands for every address of the ACL's own family. An IPv6 filter
// without a configured prefix has it too. A constant, because every filter begins with two of them.
inline constexpr Orlix::IpGenPrefix everyIpv4Address =
      Orlix::IpGenPrefix::every(Orlix::AddressFamily::ipv4);
inline const Orlix::IpGenPrefix& anyPrefix() noexcept {
   return everyIpv4Address;
}

class RuleFilter : public Kiv::Entity {
   KIV_ENTITY(RuleFilter, Kiv::Entity, "OruPostcardTelemetry::RuleFilter");
   // A prefix without an address family reads as "not configured".
   KIV_ATTRIBUTE(130, Orlix::IpGenPrefix, source, anyPrefix());
   KIV_ATTRIBUTE(131, Orlix::IpGenPrefix, destination, anyPrefix());
   // A port match is in force only while its flag is set; readers ignore data and mask otherwise.
   KIV_ATTRIBUTE(132, bool, sportDataMaskValid, false);
   KIV_ATTRIBUTE(133, L4PortDataMask, sportDataMask);
   KIV_ATTRIBUTE(134, bool, dportDataMaskValid, false);
   KIV_ATTRIBUTE(135, L4PortDataMask, dportDataMask);
   KIV_ATTRIBUTE(136, Protocol, proto); // always matched; 1 (ICMP) in a filter that was just made
   // The sample match. Null: the filter has none. The name that makes it is only its key.
   KIV_CHILD(137, Classification::TcpUdpCheckSumOrIpId, sampleDataAndMask);
   // A mask of 0: the filter does not match TCP flags.
   KIV_ATTRIBUTE(138, Classification::TcpFlagAndMask, tcpFlagAndMask);

 public:
   // Makes a filter for every address and protocol 1, without any other match.
   RuleFilter() = default;

   // Merges `other` into this filter. Prefixes and protocol are copied always; port, sample and
   // TCP-flag matches only when they are in force in `other`, and left as they are here when they
   // are not. A copied sample match is a new object with the key "sampleDataAndMask", unless this
   // filter has one of that key already. `other` may be this filter.
   void copy(const RuleFilter& other);
   // The same; `other` must not be null.
   void copy(const Pello::Ptr<const RuleFilter>& other) { copy(*other); }

 private:
   void copyPorts(const RuleFilter& other);
   void copySample(const Classification::TcpUdpCheckSumOrIpId& other);
};

// Both return a new filter; neither looks anything up.
Pello::Ptr<RuleFilter> ruleFilterFactory();
inline Pello::Ptr<RuleFilter> RuleFilterIs() {
   return ruleFilterFactory();
}

} // namespace OruPostcardTelemetry
