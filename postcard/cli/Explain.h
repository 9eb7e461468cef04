// `postcard explain`: which rule packets hit, what happens to them, and why not the others.
#pragma once

#include "postcard/cli/Command.h"

namespace Postcard::Cli {

extern const Command explainCommand;

} // namespace Postcard::Cli
