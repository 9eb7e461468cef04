// `parseAddress`, `readAddress` and `printAddress`: the text of IP addresses. Strict on the way in,
// one text per address on the way out. Relies on the framework's text parser.
#pragma once

#include "Kiv/TextParser.h"
#include "Orlix/AddressFamily.h"
#include "Pello/Types.h"

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace Orlix {

// Reads the address that is next and writes it to the first bytes of `bytes`, in network order; the
// others stay. Returns its family.
//
// IPv4 is four decimal numbers without leading zeros. IPv6 is any text that RFC 4291 allows,
// upper-case and mixed notation included, without a zone. What may follow is up to the caller.
// Throws ParseError at the first character that cannot belong to an address.
AddressFamily parseAddress(Kiv::TextParser& parser, std::span<U8, 16> bytes);

// The family of the address that `text` is, which is written to the first bytes of `bytes` in
// network order; the others stay. Nothing when `text` is no address, or more than one; then `bytes`
// may have changed. Reads the same texts as `parseAddress`. Throws nothing, for texts that are
// often wrong.
std::optional<AddressFamily> readAddress(std::string_view text, std::span<U8, 16> bytes);

// Appends the address of 4 or 16 bytes in network order: a dotted quad, or the text of RFC 5952.
void printAddress(std::string& out, std::span<const U8> bytes);

} // namespace Orlix
