// `parseFrame`: reads the bytes of a frame from hexadecimal text. Relies on `Kiv::ParseError` for
// its failures.
#pragma once

#include "Pello/Types.h"

#include <string_view>
#include <vector>

namespace Postcard::Packets {

// The bytes that `text` writes with two hexadecimal digits each, in upper or lower case. Between
// bytes, but not inside one, there may be blanks, tabs, line ends and colons, as packet analysers
// write them. Throws Kiv::ParseError with the reason and the position when something else stands
// there, or when there is no byte at all.
std::vector<U8> parseFrame(std::string_view text);

} // namespace Postcard::Packets
