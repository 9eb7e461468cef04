// `checkUnsupportedFields`: names, in one message, every match of a class's filter that a rule
// cannot express. Relies on TcpControl and on the classification library.
#pragma once

#include "Classification/ProtocolNumbers.h"
#include "Classification/StructuredFilter.h"
#include "Kiv/String.h"
#include "PostcardTelemetry/HwCapability.h"

namespace OruPostcardTelemetry {

// Returns the empty text when rules can express the filter, which must not be null; otherwise a
// message for the operator. A null `hwCapability` means hardware that cannot match TCP flags.
//
// Contract with the producers of filters: where the hardware matches TCP flags and the feature
// toggle is off, a protocol field with port entries has exactly one. The process ends when it has
// more.
Kiv::String
checkUnsupportedFields(const Pello::Ptr<const Classification::StructuredFilter>& filter,
                       const Pello::Ptr<const PostcardTelemetry::HwCapability>& hwCapability);

// The protocols that rules are made for.
using Classification::protocolTcp;
using Classification::protocolUdp;

// Returns the key of the protocol field for the protocol `number` alone.
inline Classification::NumericalRange singleProtocol(U8 number) {
   return {number, number};
}

} // namespace OruPostcardTelemetry
