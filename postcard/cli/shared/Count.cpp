#include "postcard/cli/shared/Count.h"

#include "postcard/cli/shared/Work.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <charconv>

namespace Postcard::Cli {

namespace {

template <class Count>
CLI::Option* add(CLI::App& parser, const char* name, Count& count, const char* description) {
   return parser.add_option(name, count, description)->type_name("N")->check(checkCount);
}

} // namespace

std::string checkCount(const std::string& text) {
   std::size_t count = 0;
   const char* const end = text.data() + text.size();
   const auto [rest, error] = std::from_chars(text.data(), end, count);
   const bool whole = error == std::errc{} && rest == end && count <= greatestCount;
   const bool octal = text.size() > 1 && text.front() == '0';
   return whole && !octal ? ""
                          : fmt::format("{} is no whole number from 0 to {}", quotedWord(text),
                                        greatestCount);
}

CLI::Option* addCount(CLI::App& parser, const char* name, std::size_t& count,
                      const char* description) {
   return add(parser, name, count, description);
}

CLI::Option* addCount(CLI::App& parser, const char* name, std::optional<std::size_t>& count,
                      const char* description) {
   return add(parser, name, count, description);
}

} // namespace Postcard::Cli
