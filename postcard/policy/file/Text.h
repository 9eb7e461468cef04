// `readPolicyText` and `checkText`: the bytes of a policy file, before they are YAML. Relies on the
// system's file calls.
//
// A text that passes `checkText` is printable UTF-8 with the line breaks of any editor, so that
// later steps need no check of encodings.
#pragma once

#include "postcard/policy/Finding.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace Postcard::Policy::File {

// What stands for standard input where a path is expected.
inline constexpr std::string_view standardInput = "-";

// The bytes of the policy file at `path`, unchecked, or the finding that says why there are none.
//
// A path that names a descriptor of this process ("-", "/dev/stdin", "/dev/fd/N" or
// "/proc/self/fd/N") is read from that descriptor to its end, whatever it is: a pipe, a terminal, a
// socket or a file. This waits for the writer, and what has been read is gone. Any other path must
// be a regular file or a symbolic link to one; this never waits for the writer of a pipe.
//
// Refuses a file of more than `maxBytes` bytes: without reading it when the system states that
// size, else as soon as the limit is exceeded. Throws std::bad_alloc only.
std::variant<std::string, Finding> readPolicyText(const std::string& path, std::size_t maxBytes);

// A finding about the first character that a policy file must not hold; nothing when there is none.
// Refused are bytes that are not UTF-8, byte order marks, noncharacters that end a plane, and
// control characters other than tab, line feed and carriage return. The separators U+0085, U+2028
// and U+2029 are refused as well: YAML 1.1 takes them for ends of lines and YAML 1.2 does not
// (YAML 1.2.2, section 5.4), so line numbers would depend on the reader.
std::optional<Finding> checkText(std::string_view text);

// The functions below require a text that `checkText` has accepted.

// The part of `text` that begins at `location`; empty when `text` ends before.
std::string_view textFrom(std::string_view text, Location location);

// The place of the first character at or behind `location` that is neither blank nor comment;
// nothing when there is none.
std::optional<Location> somethingAfter(std::string_view text, Location location);

// A finding about the first directive other than %YAML; nothing when there is none. A policy file
// needs no other, and LibYAML compares each tag directive with all those before it, which takes
// quadratic time. So directives are refused before LibYAML runs. The search ends at the first line
// of content, because directives can only stand before it.
std::optional<Finding> findDirective(std::string_view text);

} // namespace Postcard::Policy::File
