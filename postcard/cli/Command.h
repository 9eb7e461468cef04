// What the subcommands of `postcard` share: their exit codes and the row that each of them is.
#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace Postcard::Cli {

enum ExitCode : int {
   exitDone = 0,
   exitRefused = 1,     // the library refused a policy, or a check failed
   exitUsage = 2,       // bad usage, or a file that cannot be used
   exitEnvironment = 3, // the surroundings failed: module, socket, permission, rules client
};

// One subcommand.
struct Command {
   const char* name;
   const char* description; // one line, as `--help` shows it
   // Declares the options on the subcommand's parser. What is returned runs the command after the
   // options have been read, and returns the exit code.
   std::function<int()> (*declare)(CLI::App& parser);
};

} // namespace Postcard::Cli
