// `PackedColumn`: a column of numbers in few bytes; `deflated` and `base64`: bytes as a short text.
// The page in the browser reads them back (`web/unpack.js`). Relies on zlib, which stays in the
// source.
#pragma once

#include "Pello/Types.h"

#include <string>
#include <string_view>

namespace Postcard::Report {

// Each number is written as its difference to the one before (the first one: to 0), because the
// numbers of neighbouring rules are often equal or count up. The difference d becomes 2d when it is
// not negative, else -2d - 1, and is written seven bits to a byte, the low ones first. The highest
// bit of a byte says that more bytes follow.
class PackedColumn {
 public:
   // Appends a number.
   void add(U32 number);
   // All numbers so far. Valid until the next `add`.
   std::string_view bytes() const { return bytes_; }

 private:
   std::string bytes_;
   U32 before_ = 0; // the number that was added last
};

// `bytes` compressed as RFC 1951 (raw deflate) says, as small as zlib can make them. Throws
// std::bad_alloc.
std::string deflated(std::string_view bytes);

// `bytes` in the characters of base64 (RFC 4648, section 4), with padding.
std::string base64(std::string_view bytes);

} // namespace Postcard::Report
