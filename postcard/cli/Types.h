// `postcard types`: the types of the framework, as reflection knows them.
#pragma once

#include "postcard/cli/Command.h"

namespace Postcard::Cli {

extern const Command typesCommand;

} // namespace Postcard::Cli
