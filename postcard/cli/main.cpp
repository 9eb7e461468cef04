// `postcard`: reads the command line and runs the subcommand. One row per subcommand.
#include "postcard/cli/AgentCommands.h"
#include "postcard/cli/Check.h"
#include "postcard/cli/Compile.h"
#include "postcard/cli/Explain.h"
#include "postcard/cli/Types.h"
#include "postcard/cli/trace/Trace.h"

#include <CLI/CLI.hpp>

#include <exception>
#include <functional>
#include <iostream>

namespace {

const Postcard::Cli::Command* const commands[] = {
      &Postcard::Cli::compileCommand, &Postcard::Cli::checkCommand,
      &Postcard::Cli::explainCommand, &Postcard::Cli::agentCommand,
      &Postcard::Cli::showCommand,    &Postcard::Cli::statusCommand,
      &Postcard::Cli::reloadCommand,  &Postcard::Cli::traceLevelsCommand,
      &Postcard::Cli::traceCommand,   &Postcard::Cli::typesCommand};

int runCommand(int argc, char** argv) {
   CLI::App parser{"Postcard-telemetry policies as hardware ACLs", "postcard"};
   parser.set_version_flag("--version", "postcard " POSTCARD_VERSION);
   parser.require_subcommand(1);
   std::function<int()> chosen;
   for (const Postcard::Cli::Command* command : commands) {
      CLI::App* subcommand = parser.add_subcommand(command->name, command->description);
      subcommand->callback([&chosen, run = command->declare(*subcommand)] { chosen = run; });
   }
   try {
      parser.parse(argc, argv);
   } catch (const CLI::ParseError& error) {
      return parser.exit(error) == 0 ? Postcard::Cli::exitDone : Postcard::Cli::exitUsage;
   }
   return chosen();
}

// Results that nobody gets are no results.
int withOutputWritten(int exitCode) {
   if (std::cout.flush()) {
      return exitCode;
   }
   std::cerr << "postcard: standard output: it cannot be written\n";
   return Postcard::Cli::exitEnvironment;
}

} // namespace

int main(int argc, char** argv) {
   try {
      return withOutputWritten(runCommand(argc, argv));
   } catch (const std::exception& error) {
      std::cerr << "postcard: " << error.what() << '\n';
      return Postcard::Cli::exitEnvironment;
   }
}
