#include "postcard/cli/shared/Format.h"

#include <CLI/CLI.hpp>

#include <algorithm>

namespace Postcard::Cli {

void Format::declare(CLI::App& parser, const std::vector<std::string>& names) {
   const bool hasList = std::ranges::find(names, "list") != names.end();
   parser.add_option("--format", name_,
                     hasList ? "text or list for people, json for programs"
                             : "text for people, json for programs")
         ->check(CLI::IsMember(names))
         ->capture_default_str();
}

} // namespace Postcard::Cli
