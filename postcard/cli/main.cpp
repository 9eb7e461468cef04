// `postcard`: reads the command line and runs the subcommand that it names.
#include "Pello/VisibleCharacters.h"
#include "postcard/cli/CommandLine.h"
#include "postcard/cli/Commands.h"
#include "postcard/cli/shared/Descriptors.h"
#include "postcard/cli/shared/Work.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <exception>
#include <functional>
#include <iostream>
#include <new>

namespace Postcard::Cli {
namespace {

// In the order in which `--help` lists them.
const Command* const commands[] = {
      &compileCommand,     &checkCommand, &explainCommand, &diffCommand,     &reportCommand,
      &agentCommand,       &showCommand,  &statusCommand,  &countersCommand, &reloadCommand,
      &traceLevelsCommand, &traceCommand, &typesCommand,   &helpCommand};

// More than any subcommand but the agent has open at once: a pipe, a file, the helper module.
constexpr std::size_t descriptors = 4;

int runCommand(int argc, char** argv) {
   CLI::App parser{"Postcard-telemetry policies as hardware ACLs", "postcard"};
   parser.set_version_flag("--version", "postcard " POSTCARD_VERSION);
   parser.require_subcommand(1);
   std::function<int()> chosen;
   for (const Command* command : commands) {
      CLI::App* subcommand = parser.add_subcommand(command->name, command->description);
      subcommand->callback([&chosen, run = command->declare(*subcommand)] { chosen = run; });
   }
   // The command runs after `parse` and outside this `try`: an exception of the command is not an
   // error of usage.
   try {
      parser.parse(argc, argv);
   } catch (const CLI::ParseError& error) {
      return reportUsage(parser, error);
   }
   requireDescriptors(descriptors);
   return chosen();
}

// Returns `exitCode`, or `exitEnvironment` when standard output could not be written completely: a
// script must not take a cut-off result for a whole one.
int withOutputWritten(int exitCode) {
   if (std::cout.flush()) {
      return exitCode;
   }
   std::cerr << "postcard: standard output: it cannot be written\n";
   return exitEnvironment;
}

int runReported(int argc, char** argv) {
   // A write behind the limit of a file's size fails then, like one to a full disk, and is
   // reported. The signal would end the process without a word.
   std::signal(SIGXFSZ, SIG_IGN);
   escapeMessages();
   try {
      return withOutputWritten(runCommand(argc, argv));
   } catch (const std::bad_alloc&) {
      endForShortMemory();
   } catch (const std::exception& error) {
      messages() << "postcard: " << Pello::escaped(error.what()) << '\n';
      return exitEnvironment;
   }
}

} // namespace
} // namespace Postcard::Cli

int main(int argc, char** argv) {
   return Postcard::Cli::runReported(argc, argv);
}
