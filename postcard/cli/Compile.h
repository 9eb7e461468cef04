// `postcard compile`: makes the ACLs of a policy file through the plug-in and prints them.
#pragma once

#include "postcard/cli/Command.h"

namespace Postcard::Cli {

extern const Command compileCommand;

} // namespace Postcard::Cli
