// `Protocol`: the IP protocol number that a rule matches (IANA registry "Assigned Internet Protocol
// Numbers"). Rules cannot match number 0. Relies on the type framework.
#pragma once

#include "Kiv/Value.h"

namespace OruPostcardTelemetry {

class Protocol : public Kiv::Value<Protocol> {
   KIV_VALUE(Protocol, "OruPostcardTelemetry::Protocol");
   KIV_FIELD(1, U8, value); // minProto to maxProto

 public:
   static constexpr U8 minProto = 1;
   static constexpr U8 maxProto = 255;

   // Protocol 1, the smallest that is allowed.
   Protocol() : value_{minProto} {}
   // Throws Kiv::RangeError for 0.
   explicit Protocol(U8 value) : value_{checked(value)} {}
   // Reads a decimal number, also from a range of characters. Throws Kiv::RangeError for 0 and
   // Kiv::ParseError for a text that is no number from 0 to 255.
   KIV_TEXT_CONSTRUCTORS(Protocol);

   // No collection has protocols for keys; asking the framework for a hash throws
   // Kiv::NotHashable.
   U64 hash(U64) const = delete;

 private:
   static U8 checked(U8 value) {
      if (value < minProto) {
         refuse();
      }
      return value;
   }
   // Throws Kiv::RangeError. A function of its own, so that `checked` stays small enough to inline.
   [[noreturn]] static void refuse();
};

} // namespace OruPostcardTelemetry
