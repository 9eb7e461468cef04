// `postcard check`: what the policies of a file cost in TCAM entries, and whether they fit.
#pragma once

#include "postcard/cli/Command.h"

namespace Postcard::Cli {

extern const Command checkCommand;

} // namespace Postcard::Cli
