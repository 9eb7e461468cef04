#include "postcard/cli/Format.h"

#include <CLI/CLI.hpp>

namespace Postcard::Cli {

void Format::declare(CLI::App& parser) {
   parser.add_option("--format", name_, "text for people, json for programs")
         ->check(CLI::IsMember({"text", "json"}))
         ->capture_default_str();
}

} // namespace Postcard::Cli
