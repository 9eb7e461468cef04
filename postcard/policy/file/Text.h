// `readPolicyText` and `checkText`: the bytes of a policy file, before they are YAML. Relies on the
// system's file calls.
//
// A text that passes `checkText` is printable UTF-8 with the line breaks of any editor, so that
// later steps need no check of encodings.
#pragma once

#include "postcard/policy/file/Finding.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace Postcard::Policy::File {

// The bytes of the regular file at `path`, unchecked, or the finding that says why there are none.
// Refuses a file of more than `maxBytes` bytes: without reading it when the system states that
// size, else as soon as the limit is exceeded. Never waits for the writer of a pipe. Throws
// std::bad_alloc only.
std::variant<std::string, Finding> readPolicyText(const std::string& path, std::size_t maxBytes);

// A finding about the first character that a policy file must not hold; nothing when there is none.
// Refused are bytes that are not UTF-8, byte order marks, noncharacters that end a plane, and
// control characters other than tab, line feed and carriage return. The separators U+0085, U+2028
// and U+2029 are refused as well: YAML 1.1 takes them for ends of lines and YAML 1.2 does not
// (YAML 1.2.2, section 5.4), so line numbers would depend on the reader.
std::optional<Finding> checkText(std::string_view text);

} // namespace Postcard::Policy::File
