// `postcard types`: the types of the framework, as reflection describes them.
#include "postcard/report/Types.h"

#include "postcard/cli/Commands.h"
#include "postcard/cli/shared/Format.h"
#include "postcard/cli/shared/Work.h"
#include "postcard/host/PluginHost.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <iostream>
#include <memory>

namespace Postcard::Cli {

namespace {

struct Options {
   std::string name; // empty: all types
   Format format;
};

int run(const Options& options) {
   try {
      // Loading the module registers the helper's own types.
      const Host::PluginHost host{Host::PluginHost::defaultModule()};
   } catch (const Host::PluginError& error) {
      std::cerr << error.what() << '\n';
      return exitEnvironment;
   }
   // With a name, everything about the type is printed; without one, a line per type.
   const Report::Types types =
         options.name.empty() ? Report::allTypes() : Report::typesNamed(options.name);
   if (types.types.empty()) {
      std::cerr << "there is no type " << quotedWord(options.name)
                << "; postcard types lists them\n";
      return exitUsage;
   }
   options.format.print(types);
   return exitDone;
}

std::function<int()> declare(CLI::App& parser) {
   auto options = std::make_shared<Options>();
   parser.add_option("NAME", options->name,
                     "only this type, with attributes and operations; the part behind the last :: "
                     "is enough");
   options->format.declare(parser);
   parser.footer("Exit status: 0 done, 2 bad usage or no such type, 3 the helper module or\n"
                 "standard output cannot be used.");
   return [options] { return run(*options); };
}

} // namespace

const Command typesCommand{"types", "Print the types of the framework, or all about one", &declare};

} // namespace Postcard::Cli
