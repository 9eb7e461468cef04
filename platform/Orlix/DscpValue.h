// `DscpValue`: the differentiated-services code point (RFC 2474) that an action writes. Relies on
// the value support of the framework.
#pragma once

#include "Kiv/Value.h"
#include "Pello/Types.h"

#include <string_view>

namespace Orlix {

class DscpValue : public Kiv::Value<DscpValue> {
   KIV_VALUE(DscpValue, "Orlix::DscpValue");
   // A code point has six bits, but all eight are kept and no number is refused.
   KIV_FIELD(1, U8, value);

 public:
   // Code point 0.
   DscpValue() = default;
   // From a code point, not from the DS field of a packet, which has the code point in its upper
   // six bits.
   explicit DscpValue(U8 value) noexcept : value_{value} {}
   // From decimal digits; ParseError for anything else, and for more than 255.
   KIV_TEXT_CONSTRUCTORS(DscpValue);
};

} // namespace Orlix
