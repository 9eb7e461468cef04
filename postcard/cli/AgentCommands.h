// The subcommands around a running agent: `postcard agent` runs one; `show`, `status`, `reload`
// and `trace-levels` ask it over its socket.
#pragma once

#include "postcard/cli/Command.h"

namespace Postcard::Cli {

extern const Command agentCommand;
extern const Command showCommand;
extern const Command statusCommand;
extern const Command reloadCommand;
extern const Command traceLevelsCommand;

} // namespace Postcard::Cli
