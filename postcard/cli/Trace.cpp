// `postcard trace`: prints the traces in ring files.
#include "postcard/cli/trace/Trace.h"

#include "postcard/cli/Commands.h"
#include "postcard/cli/Format.h"
#include "postcard/host/PluginHost.h"

#include <CLI/CLI.hpp>

#include <cstdlib>
#include <memory>
#include <stdexcept>

namespace Postcard::Cli {

namespace {

struct Options {
   Trace::Options trace;
   Format format;
};

// Registers the types that only the helper module has, so that values of these types are printed in
// words. A missing module is no error: a ring file may be read on a machine without the plug-in,
// and the text of such a value then says what is missing.
void loadTypes() {
   try {
      const Host::PluginHost host{Host::PluginHost::defaultModule()};
   } catch (const Host::PluginError&) {
      return;
   }
}

int run(const Options& options) {
   // Before anything traces: otherwise this process would make its own ring in the file that it is
   // asked to read, if the user has exported the variable.
   ::unsetenv("RINGLOG_FILE");
   loadTypes();
   Trace::Options trace = options.trace;
   trace.json = options.format.isJson();
   return Trace::run(trace) ? exitDone : exitUsage;
}

// Adds an option whose text goes to a setting of the filter. The filter checks the text, and its
// reason becomes an error of usage.
void addSetting(CLI::App& parser, const std::shared_ptr<Options>& options, const char* name,
                const char* type, const char* description,
                void (Trace::Filter::*set)(const std::string&)) {
   parser.add_option_function<std::string>(
               name,
               [=](const std::string& text) {
                  try {
                     (options->trace.filter.*set)(text);
                  } catch (const std::invalid_argument& error) {
                     throw CLI::ValidationError{name, error.what()};
                  }
               },
               description)
         ->type_name(type);
}

void addSettings(CLI::App& parser, const std::shared_ptr<Options>& options) {
   addSetting(parser, options, "--level", "L[-M][,...]", "only these levels, such as 0-5,9",
              &Trace::Filter::levelsIs);
   addSetting(parser, options, "--since", "TIME",
              "only from this time on: 2025-11-21T11:36:51Z, or an age: 10s, 5m, 2h, 1d",
              &Trace::Filter::sinceIs);
   addSetting(
         parser, options, "--grep", "REGEX",
         "only those whose text or class::function has a match (regular expression, RE2 syntax)",
         &Trace::Filter::expressionIs);
   addSetting(parser, options, "--source", "PATTERN",
              "only from these sources; * stands for any characters", &Trace::Filter::sourceIs);
}

std::function<int()> declare(CLI::App& parser) {
   auto options = std::make_shared<Options>();
   parser.add_option("FILE", options->trace.files, "ring file, as RINGLOG_FILE named it")
         ->required();
   addSettings(parser, options);
   options->format.declare(parser);
   parser.add_flag("--follow", options->trace.follow,
                   "go on with new traces until interrupted or until the traced processes end");
   parser.footer(
         "Prints a line for each trace, the oldest first, those of several files by time:\n"
         "   TIME THREAD SOURCE LEVEL CLASS::FUNCTION: TEXT\n"
         "TIME is UTC. With several files PROCESS/THREAD stands in place of THREAD. Levels: 0 "
         "errors,\n"
         "5 decisions and results, 8 entry into an operation (without text), 9 details. Control\n"
         "characters are shown as \\n, \\x1b and the like. With --format json each line is an "
         "object.\n"
         "Standard error says how many traces could not be kept or read.\n"
         "Exit status: 0 done, 2 bad usage or a file that is no ring, 3 output cannot be written.");
   return [options] { return run(*options); };
}

} // namespace

const Command traceCommand{"trace", "Print the traces in ring files", &declare};

} // namespace Postcard::Cli
