// `L4Port` and `L4PortDataMask`: a layer-4 port (RFC 9293, RFC 768), and a set of ports in the form
// in which hardware matches them, value and bit mask. Relies on the type framework.
#pragma once

#include "Kiv/Value.h"

namespace OruPostcardTelemetry {

// One port.
class L4Port : public Kiv::Value<L4Port> {
   KIV_VALUE(L4Port, "OruPostcardTelemetry::L4Port");
   KIV_FIELD(1, U16, value);

 public:
   // The bounds span all 16 bits, so no number is refused.
   static constexpr U16 minPort = 0;
   static constexpr U16 maxPort = 65535;

   // Port 0.
   L4Port() = default;
   explicit L4Port(U16 value) : value_{value} {}
   // Reads a decimal number, also from a range of characters. Throws Kiv::ParseError for any other
   // text.
   KIV_TEXT_CONSTRUCTORS(L4Port);
};

// The ports that agree with `l4PortData` in every bit that is set in `l4PortMask`.
class L4PortDataMask : public Kiv::Value<L4PortDataMask> {
   KIV_VALUE(L4PortDataMask, "OruPostcardTelemetry::L4PortDataMask");
   KIV_FIELD(1, U16, l4PortData);
   KIV_FIELD(2, U16, l4PortMask); // 0xffff matches one port, 0 every port

 public:
   // Both 0: every port.
   L4PortDataMask() = default;
   L4PortDataMask(U16 l4PortData, U16 l4PortMask)
      : l4PortData_{l4PortData}, l4PortMask_{l4PortMask} {}
   // Reads the generic value text, also from a range of characters. Throws Kiv::ParseError, which
   // names the attribute that cannot be read.
   KIV_TEXT_CONSTRUCTORS(L4PortDataMask);
};

} // namespace OruPostcardTelemetry
