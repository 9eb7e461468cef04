// `checkUnsupportedFields`: names, in one message, every match of a filter that a rule cannot
// express.
#pragma once

#include "Classification/StructuredFilter.h"
#include "Kiv/String.h"
#include "PostcardTelemetry/HwCapability.h"

namespace OruPostcardTelemetry {

// Empty when the filter can be expressed. Ends the process when the hardware matches TCP flags, the
// feature toggle is off, and a protocol field has port entries but not exactly one.
Kiv::String
checkUnsupportedFields(const Pello::Ptr<const Classification::StructuredFilter>& filter,
                       const Pello::Ptr<const PostcardTelemetry::HwCapability>& hwCapability);

// The protocol fields that rules can be made for.
inline constexpr U8 protocolTcp = 6;  // RFC 9293
inline constexpr U8 protocolUdp = 17; // RFC 768

// Exactly the protocol `number`.
inline Classification::NumericalRange singleProtocol(U8 number) {
   return {number, number};
}

} // namespace OruPostcardTelemetry
