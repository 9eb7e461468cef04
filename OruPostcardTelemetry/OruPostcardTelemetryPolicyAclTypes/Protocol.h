// `Protocol`: an IP protocol number (IANA protocol numbers registry); 0 is not one that a rule can
// match.
#pragma once

#include "Kiv/Value.h"

namespace OruPostcardTelemetry {

class Protocol : public Kiv::Value<Protocol> {
   KIV_VALUE(Protocol, "OruPostcardTelemetry::Protocol");
   KIV_FIELD(1, U8, value);

 public:
   static constexpr U8 minProto = 1;
   static constexpr U8 maxProto = 255;

   Protocol() : value_{minProto} {}
   // Throws Kiv::RangeError for 0.
   explicit Protocol(U8 value) : value_{checked(value)} {}
   // Reads a decimal number. Throws ParseError, and RangeError for 0.
   explicit Protocol(std::string_view text) : Protocol{Kiv::parseValue<Protocol>(text)} {}

   U64 hash(U64) const = delete; // protocols are nobody's key

 private:
   static U8 checked(U8 value) {
      if (value < minProto) {
         refuse();
      }
      return value;
   }
   [[noreturn]] static void refuse();
};

} // namespace OruPostcardTelemetry
