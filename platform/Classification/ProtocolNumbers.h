// The IP protocol numbers and TCP flag bits that filters and packets use, as constants and with the
// words that people write for them (`protocolWords`, `tcpFlagWords`). The only place where these
// numbers and words stand. Relies on nothing.
#pragma once

#include "Pello/Types.h"

#include <array>
#include <string_view>

namespace Classification {

// IP protocol numbers (IANA registry "Assigned Internet Protocol Numbers").
inline constexpr U8 protocolIcmp = 1;    // RFC 792
inline constexpr U8 protocolTcp = 6;     // RFC 9293
inline constexpr U8 protocolUdp = 17;    // RFC 768
inline constexpr U8 protocolIcmpV6 = 58; // RFC 4443

// A word and the number that it stands for.
struct NamedNumber {
   std::string_view word; // lower case; a literal
   U8 number = 0;

   friend constexpr bool operator==(const NamedNumber&, const NamedNumber&) = default;
};

// The protocols that have a word, in the order of their numbers. "icmp" is the beginning of
// "icmpv6": a parser that reads a word from a longer text must take the longest that fits.
inline constexpr std::array<NamedNumber, 4> protocolWords{{
      {"icmp", protocolIcmp},
      {"tcp", protocolTcp},
      {"udp", protocolUdp},
      {"icmpv6", protocolIcmpV6},
}};

// The bits of the flag byte of a TCP header (RFC 9293, section 3.1; ECE and CWR: RFC 3168), from
// the lowest bit to the highest.
inline constexpr std::array<NamedNumber, 8> tcpFlagWords{{
      {"fin", 0x01},
      {"syn", 0x02},
      {"rst", 0x04},
      {"psh", 0x08},
      {"ack", 0x10},
      {"urg", 0x20},
      {"ece", 0x40},
      {"cwr", 0x80},
}};

// The word of the protocol `number`, a literal; empty when the protocol has no word.
constexpr std::string_view protocolWord(U8 number) {
   for (const NamedNumber& row : protocolWords) {
      if (row.number == number) {
         return row.word;
      }
   }
   return {};
}

} // namespace Classification
