// `readPolicyText` and `checkText`: the bytes of a policy file, before they are YAML. Relies on the
// system's file calls.
//
// What passes `checkText` is printable UTF-8 with the line breaks of every editor, so that nobody
// behind it has to think of encodings.
#pragma once

#include "postcard/policy/file/Finding.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace Postcard::Policy::File {

// The content of the regular file at `path`, or the finding that says why there is none. A file
// that is longer than `maxBytes` is refused; one that says so is not read at all. Never waits for a
// pipe.
std::variant<std::string, Finding> readPolicyText(const std::string& path, std::size_t maxBytes);

// The first character that a policy file must not hold; nothing when the text is clean. Tab, line
// feed and carriage return are the only control characters allowed. The separators U+0085, U+2028
// and U+2029 are refused: YAML 1.1 takes them for ends of lines and YAML 1.2 does not, so line
// numbers would depend on the reader.
std::optional<Finding> checkText(std::string_view text);

} // namespace Postcard::Policy::File
