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

// The content of the regular file at `path`, or the finding that says why there is none. A file
// that is longer than `maxBytes` is refused without being read.
std::variant<std::string, Finding> readPolicyText(const std::string& path, std::size_t maxBytes);

// The first character that a policy file must not hold; nothing when the text is clean. Tabs, line
// feeds and carriage returns are the only control characters allowed. The separators U+0085, U+2028
// and U+2029 are refused: YAML's versions disagree whether they end a line, and so would the line
// numbers of findings.
std::optional<Finding> checkText(std::string_view text);

} // namespace Postcard::Policy::File
