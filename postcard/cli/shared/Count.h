// `addCount`: an option that takes a number of things. Relies on nothing.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace Postcard::Cli {

// The greatest count that an option takes. The entries of an ACL have indexes of 32 bits, so no
// count of them is greater.
inline constexpr std::size_t greatestCount = 4294967295;

// What is wrong with `text` as a count, in the form that the parser of the command line expects of
// a check: empty when nothing is wrong. A count is decimal digits, without a sign, a unit or zeros
// in front (the parser would take those for an octal number).
std::string checkCount(const std::string& text);

// Adds the option `name` to the command line. `parser` writes into `count`, which must stay in its
// place until the command line has been read.
CLI::Option* addCount(CLI::App& parser, const char* name, std::size_t& count,
                      const char* description);
CLI::Option* addCount(CLI::App& parser, const char* name, std::optional<std::size_t>& count,
                      const char* description);

} // namespace Postcard::Cli
