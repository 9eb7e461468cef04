// `reportUsage`: says what is wrong with a command line, with the closest right word; `quotedWord`:
// a word of the user in a message. Relies on the guesses of `policy/Words.h`.
#pragma once

#include "postcard/cli/Command.h"

#include <string>
#include <string_view>

namespace CLI {
class App;
class ParseError;
} // namespace CLI

namespace Postcard::Cli {

// Handles `error`, with which `parser.parse` ended; `parser` is the whole command's. Help and
// version are no mistakes: they go to standard output, and the result is `exitDone`. A mistake goes
// to standard error, with the command whose --help explains it, and the result is `exitUsage`.
ExitCode reportUsage(CLI::App& parser, const CLI::ParseError& error);

// `word` in single quotes for a message, as `Pello::escaped` writes it.
std::string quotedWord(std::string_view word);

} // namespace Postcard::Cli
