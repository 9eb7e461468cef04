// `DscpDataAndMask`: a DSCP (RFC 2474) as value and bit mask.
#pragma once

#include "Kiv/Value.h"
#include "Orlix/DscpValue.h"

namespace OruPostcardTelemetry {

class DscpDataAndMask : public Kiv::Value<DscpDataAndMask> {
   KIV_VALUE(DscpDataAndMask, "OruPostcardTelemetry::DscpDataAndMask");
   KIV_FIELD(1, Orlix::DscpValue, dscpData);
   KIV_FIELD(2, U8, dscpMask); // a mask of 0 rewrites no bits

 public:
   DscpDataAndMask() = default;
   DscpDataAndMask(Orlix::DscpValue dscpData, U8 dscpMask)
      : dscpData_{dscpData}, dscpMask_{dscpMask} {}
   // Reads the generic value text. Throws ParseError that names the attribute.
   explicit DscpDataAndMask(std::string_view text)
      : DscpDataAndMask{Kiv::parseValue<DscpDataAndMask>(text)} {}
};

} // namespace OruPostcardTelemetry
