// The bytes of a policy file, before they are YAML. Doors: `readPolicyText` and `checkText`. Relies
// on the system's file calls. What passes here is printable UTF-8 with the line breaks of every
// editor, so that nobody behind it has to think of encodings.

#pragma once

#include "postcard/policy/file/PolicyFile.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace Postcard::Policy::File {

struct Decoded {
   char32_t character = 0; // U+FFFD when the bytes are not UTF-8
   std::size_t length = 0; // bytes of the character; 1 when they are not UTF-8
   bool valid = true;
};

// The first character of `text`, which must not be empty. Overlong forms, surrogates and numbers
// past U+10FFFF are not UTF-8.
inline constexpr char32_t replacementCharacter = 0xfffd;
Decoded decodeUtf8(std::string_view text);

// Whether a character may stand in a line of output: no control character, no line or paragraph
// separator, no byte order mark, no noncharacter.
bool isPrintable(char32_t character);

// The content of the regular file at `path`, or the finding that says why there is none. A file
// that is longer than `maxBytes` is refused without being read.
std::variant<std::string, Finding> readPolicyText(const std::string& path, std::size_t maxBytes);

// The first character that a policy file must not hold; nothing when the text is clean. Tabs, line
// feeds and carriage returns are the only control characters allowed. The separators U+0085, U+2028
// and U+2029 are refused: YAML's versions disagree whether they end a line, and so would the line
// numbers of findings.
std::optional<Finding> checkText(std::string_view text);

} // namespace Postcard::Policy::File
