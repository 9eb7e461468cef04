// `checkUnsupportedFields`: names, in one message, every match of a filter that a rule cannot
// express.
#pragma once

#include "Classification/ProtocolNumbers.h"
#include "Classification/StructuredFilter.h"
#include "Kiv/String.h"
#include "PostcardTelemetry/HwCapability.h"

namespace OruPostcardTelemetry {

// Empty when the filter can be expressed. Ends the process when the hardware matches TCP flags, the
// feature toggle is off, and a protocol field has port entries but not exactly one.
Kiv::String
checkUnsupportedFields(const Pello::Ptr<const Classification::StructuredFilter>& filter,
                       const Pello::Ptr<const PostcardTelemetry::HwCapability>& hwCapability);

// Whether the feature toggle FeaturePostcardTelemetryTcpControl is on. The first answer holds for
// the life of the process.
bool toggleFeaturePostcardTelemetryTcpControlEnabled();

// The protocol fields that rules can be made for.
using Classification::protocolTcp;
using Classification::protocolUdp;

// Exactly the protocol `number`.
inline Classification::NumericalRange singleProtocol(U8 number) {
   return {number, number};
}

// "Expected ports() to be 1, got 2", for the contract of producers that know no TCP control.
std::string portCountMessage(std::size_t ports);

} // namespace OruPostcardTelemetry
