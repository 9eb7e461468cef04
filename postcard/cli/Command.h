// `Command`: the row that each subcommand of `postcard` is, and the exit codes that all share.
// Relies on nothing: the parser of the command line is known here by name only.
#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace Postcard::Cli {

// How `postcard` ends. Scripts depend on the numbers.
enum ExitCode : int {
   exitDone = 0,
   exitRefused = 1,     // the library refused a policy, or a check failed
   exitUsage = 2,       // bad usage, or a file that cannot be used
   exitEnvironment = 3, // the environment failed: module, socket, permission, rules client, output
};

// One subcommand.
struct Command {
   const char* name;
   const char* description; // one line, as `--help` shows it
   // Declares the subcommand's options on `parser`, which outlives the returned function. The
   // function runs the command; call it once, after the command line has been read. It returns an
   // ExitCode. An exception that leaves it ends the command with `exitEnvironment`.
   std::function<int()> (*declare)(CLI::App& parser);
};

} // namespace Postcard::Cli
