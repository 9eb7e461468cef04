// `TcpFlagAndMask`: a match on TCP flags, as a value under a bit mask. Relies on the value support
// of the framework.
#pragma once

#include "Kiv/Value.h"

#include <compare>

namespace Classification {

// The flag byte of a TCP header (RFC 9293, section 3.1): FIN is bit 0, SYN 1, RST 2, PSH 3, ACK 4,
// URG 5, ECE 6, CWR 7.
class TcpFlags : public Kiv::Value<TcpFlags> {
   KIV_VALUE(TcpFlags, "Classification::TcpFlags");
   KIV_FIELD(1, U8, value);

 public:
   // No flag is set.
   TcpFlags() = default;
   explicit TcpFlags(U8 value) : value_{value} {}
   KIV_TEXT_CONSTRUCTORS(TcpFlags);

   friend auto operator<=>(const TcpFlags& a, const TcpFlags& b) { return a.value_ <=> b.value_; }
};

// A packet matches when each bit of its flag byte that is set in `tcpFlagMask` is as in `tcpFlag`.
// Both 0: no match is configured.
class TcpFlagAndMask : public Kiv::Value<TcpFlagAndMask> {
   KIV_VALUE(TcpFlagAndMask, "Classification::TcpFlagAndMask");
   KIV_FIELD(1, TcpFlags, tcpFlag);
   KIV_FIELD(2, TcpFlags, tcpFlagMask);

 public:
   // No match is configured.
   TcpFlagAndMask() = default;
   TcpFlagAndMask(TcpFlags tcpFlag, TcpFlags tcpFlagMask)
      : tcpFlag_{tcpFlag}, tcpFlagMask_{tcpFlagMask} {}
   TcpFlagAndMask(U8 tcpFlag, U8 tcpFlagMask)
      : TcpFlagAndMask{TcpFlags{tcpFlag}, TcpFlags{tcpFlagMask}} {}
   KIV_TEXT_CONSTRUCTORS(TcpFlagAndMask);

   // By the flags, then by the mask.
   friend std::strong_ordering operator<=>(const TcpFlagAndMask& a, const TcpFlagAndMask& b) {
      const auto byFlag = a.tcpFlag_ <=> b.tcpFlag_;
      return std::is_neq(byFlag) ? byFlag : a.tcpFlagMask_ <=> b.tcpFlagMask_;
   }
};

} // namespace Classification
