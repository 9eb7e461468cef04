// `reportUsage`: says what is wrong with a command line, with the closest right word. Relies on the
// guesses of `policy/Words.h`.
#pragma once

#include "postcard/cli/shared/Command.h"

namespace CLI {
class App;
class ParseError;
} // namespace CLI

namespace Postcard::Cli {

// Handles `error`, with which `parser.parse` ended; `parser` is the whole command's. Help and
// version are no mistakes: they go to standard output, and the result is `exitDone`. A mistake goes
// to standard error, with the command whose --help explains it, and the result is `exitUsage`.
ExitCode reportUsage(CLI::App& parser, const CLI::ParseError& error);

} // namespace Postcard::Cli
