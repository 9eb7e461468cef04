// `postcard trace`: prints the traces that processes have left in their ring files.
#pragma once

#include "postcard/cli/Command.h"

namespace Postcard::Cli {

extern const Command traceCommand;

} // namespace Postcard::Cli
