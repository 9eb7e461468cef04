// `decodeUtf8` and `isPrintable`: the characters of a text whose bytes may be anything. Relies on
// the standard library.
#pragma once

#include <cstddef>
#include <string_view>

namespace Pello {

// Stands for bytes that are not UTF-8 (Unicode: REPLACEMENT CHARACTER).
inline constexpr char32_t replacementCharacter = 0xfffd;

struct Utf8Character {
   char32_t character = 0; // `replacementCharacter` when the bytes are not UTF-8
   std::size_t length = 0; // in bytes; 1 when they are not UTF-8, so that a caller skips one
   bool valid = true;      // tells an encoded U+FFFD from bytes that are not UTF-8
};

// Decodes the first character of `text`, which must not be empty. Accepts any bytes: `valid` tells
// whether they are UTF-8 as RFC 3629 defines it, which excludes overlong forms, surrogates and
// numbers past U+10FFFF.
Utf8Character decodeUtf8(std::string_view text);

// Whether `character` may stand in a line of output: no control character (C0, DEL, C1), no line or
// paragraph separator (U+2028, U+2029), no byte order mark and no noncharacter that ends a plane.
bool isPrintable(char32_t character);

} // namespace Pello
