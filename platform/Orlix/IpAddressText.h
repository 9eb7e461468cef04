// `parseAddress`, `readAddress` and `printAddress`: the text of IP addresses. Reading refuses what
// programs understand differently; printing gives each address one text. Relies on the framework's
// text parser.
#pragma once

#include "Kiv/TextParser.h"
#include "Orlix/AddressFamily.h"
#include "Pello/Types.h"

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace Orlix {

// Reads the address at the parser's position and returns its family. Writes the address in network
// order to the first 4 or 16 bytes of `bytes`; the others stay. `bytes` may have changed after a
// failure.
//
// IPv4 is four decimal numbers without leading zeros, which some programs read as octal. IPv6 is
// any text that RFC 4291, section 2.2 allows, with upper-case digits and a dotted quad at the end,
// but without a zone. What may follow the address is the caller's business. Throws ParseError at
// the first character that cannot belong to an address.
AddressFamily parseAddress(Kiv::TextParser& parser, std::span<U8, 16> bytes);

// The same for the whole of `text`. Returns nothing when `text` is not an address or something
// follows the address; `bytes` may have changed then. Throws nothing, because exceptions are too
// slow for texts that often are no address.
std::optional<AddressFamily> readAddress(std::string_view text, std::span<U8, 16> bytes);

// Appends the text of an address of 4 or 16 bytes in network order: a dotted quad, or the text that
// RFC 5952 recommends. No other size is allowed.
void printAddress(std::string& out, std::span<const U8> bytes);

} // namespace Orlix
