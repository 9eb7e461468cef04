// The subcommands of `postcard`, one row each. `main` adds them to the command line, in an order of
// its own. The comment behind a row names the source that defines it. Relies on `Command`.
#pragma once

#include "postcard/cli/shared/Command.h"

namespace Postcard::Cli {

// Work on a policy file.
extern const Command compileCommand; // Compile.cpp
extern const Command checkCommand;   // Check.cpp
extern const Command explainCommand; // Explain.cpp
extern const Command diffCommand;    // Diff.cpp
extern const Command reportCommand;  // Report.cpp

// Run an agent.
extern const Command agentCommand; // Agent.cpp

// Ask a running agent.
extern const Command showCommand;        // AskAgent.cpp
extern const Command statusCommand;      // AskAgent.cpp
extern const Command countersCommand;    // AskAgent.cpp
extern const Command reloadCommand;      // AskAgent.cpp
extern const Command traceLevelsCommand; // AskAgent.cpp

// Explains the others.
extern const Command helpCommand; // CommandLine.cpp

// Look inside.
extern const Command traceCommand; // Trace.cpp
extern const Command typesCommand; // Types.cpp

} // namespace Postcard::Cli
