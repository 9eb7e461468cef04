// `DscpDataAndMask`: which bits of a packet's DSCP (differentiated services code point, RFC 2474) a
// set-DSCP action rewrites, and to what. A DSCP has six bits, so a mask of 0x3f rewrites it whole.
// Neither number is checked: bits above the six are kept and have no meaning. Relies on the type
// framework.
#pragma once

#include "Kiv/Value.h"
#include "Orlix/DscpValue.h"

namespace OruPostcardTelemetry {

class DscpDataAndMask : public Kiv::Value<DscpDataAndMask> {
   KIV_VALUE(DscpDataAndMask, "OruPostcardTelemetry::DscpDataAndMask");
   KIV_FIELD(1, Orlix::DscpValue, dscpData); // the new DSCP, 0 to 63
   KIV_FIELD(2, U8, dscpMask);               // set bits are rewritten; 0 rewrites none

 public:
   // Both 0: rewrites nothing.
   DscpDataAndMask() = default;
   DscpDataAndMask(Orlix::DscpValue dscpData, U8 dscpMask)
      : dscpData_{dscpData}, dscpMask_{dscpMask} {}
   // The same from plain numbers.
   DscpDataAndMask(U8 dscpData, U8 dscpMask)
      : DscpDataAndMask{Orlix::DscpValue{dscpData}, dscpMask} {}
   // Reads the generic value text, also from a range of characters. Throws Kiv::ParseError, which
   // names the attribute that cannot be read.
   KIV_TEXT_CONSTRUCTORS(DscpDataAndMask);
};

} // namespace OruPostcardTelemetry
