// `Command`: a subcommand of `postcard` as a row of a table, and the exit codes that all of them
// share. Relies on nothing; the library that parses the command line is only declared here.
#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace Postcard::Cli {

// The exit status of `postcard`. Scripts depend on the numbers, so they do not change.
enum ExitCode : int {
   exitDone = 0,
   exitRefused = 1,     // the plug-in refused a policy, a check failed, or two files differ
   exitUsage = 2,       // bad usage, or a file that cannot be used
   exitEnvironment = 3, // the environment failed: module, socket, permission, rules client, output
};

// One subcommand.
struct Command {
   const char* name;        // as the user writes it
   const char* description; // one line, as `--help` shows it
   // Declares the subcommand's options on `parser` and returns the function that runs the command.
   // Call that function at most once, after the command line has been read and while `parser`
   // lives. It returns an ExitCode. An exception that leaves it ends the program with
   // `exitEnvironment`.
   std::function<int()> (*declare)(CLI::App& parser);
};

} // namespace Postcard::Cli
