// `L4Port` and `L4PortDataMask`: a layer-4 port, and a set of ports as value and bit mask.
#pragma once

#include "Kiv/Value.h"

namespace OruPostcardTelemetry {

class L4Port : public Kiv::Value<L4Port> {
   KIV_VALUE(L4Port, "OruPostcardTelemetry::L4Port");
   KIV_FIELD(1, U16, value);

 public:
   // The bounds span all that the type can hold, so nothing is ever refused.
   static constexpr U16 minPort = 0;
   static constexpr U16 maxPort = 65535;

   L4Port() = default;
   explicit L4Port(U16 value) : value_{value} {}
   // Reads a decimal number. Throws ParseError.
   explicit L4Port(std::string_view text) : L4Port{Kiv::parseValue<L4Port>(text)} {}
};

class L4PortDataMask : public Kiv::Value<L4PortDataMask> {
   KIV_VALUE(L4PortDataMask, "OruPostcardTelemetry::L4PortDataMask");
   KIV_FIELD(1, U16, l4PortData);
   KIV_FIELD(2, U16, l4PortMask); // set bits are compared; 0 matches every port

 public:
   L4PortDataMask() = default;
   L4PortDataMask(U16 l4PortData, U16 l4PortMask)
      : l4PortData_{l4PortData}, l4PortMask_{l4PortMask} {}
   // Reads the generic value text. Throws ParseError that names the attribute.
   explicit L4PortDataMask(std::string_view text)
      : L4PortDataMask{Kiv::parseValue<L4PortDataMask>(text)} {}
};

} // namespace OruPostcardTelemetry
