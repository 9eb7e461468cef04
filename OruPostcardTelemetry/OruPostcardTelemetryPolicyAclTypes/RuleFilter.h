// `RuleFilter`: which packets a rule matches. All parts that are in force must match.
#pragma once

#include "Classification/TcpFlagAndMask.h"
#include "Classification/TcpUdpCheckSumOrIpId.h"
#include "Kiv/Entity.h"
#include "Kiv/String.h"
#include "Orlix/IpGenPrefix.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/L4Port.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/Protocol.h"

namespace OruPostcardTelemetry {

// The prefix "0.0.0.0/0", which stands for every address of a rule's own family, IPv6 included.
const Orlix::IpGenPrefix& anyPrefix();

class RuleFilter : public Kiv::Entity {
   KIV_ENTITY(RuleFilter, Kiv::Entity, "OruPostcardTelemetry::RuleFilter");
   KIV_ATTRIBUTE(130, Orlix::IpGenPrefix, source, anyPrefix());
   KIV_ATTRIBUTE(131, Orlix::IpGenPrefix, destination, anyPrefix());
   // A port match counts only while its flag is set; its data and mask mean nothing otherwise.
   KIV_ATTRIBUTE(132, bool, sportDataMaskValid, false);
   KIV_ATTRIBUTE(133, L4PortDataMask, sportDataMask);
   KIV_ATTRIBUTE(134, bool, dportDataMaskValid, false);
   KIV_ATTRIBUTE(135, L4PortDataMask, dportDataMask);
   KIV_ATTRIBUTE(136, Protocol, proto);
   KIV_CHILD(137, Classification::TcpUdpCheckSumOrIpId, sampleDataAndMask); // null: no match
   KIV_ATTRIBUTE(138, Classification::TcpFlagAndMask, tcpFlagAndMask);      // mask 0: no match

 public:
   RuleFilter() = default;

   // Merges `other` into this filter: addresses and protocol are copied, and so is every port,
   // sample and TCP-flag match that `other` has; those that it has not stay as they are here. The
   // sample match of a copy is a part of its own, under the name "sampleDataAndMask".
   void copy(const RuleFilter& other);

 private:
   void copyPorts(const RuleFilter& other);
   void copySample(const Classification::TcpUdpCheckSumOrIpId& other);
};

// Makes a new filter with the defaults above.
Pello::Ptr<RuleFilter> ruleFilterFactory();
inline Pello::Ptr<RuleFilter> RuleFilterIs() {
   return ruleFilterFactory();
}

} // namespace OruPostcardTelemetry
