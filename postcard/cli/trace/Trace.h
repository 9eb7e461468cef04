// `run`: prints the traces in ring files, whether their processes have ended or still write. Relies
// on `Ringlog::FileReader` for the files. The text of a value comes from the descriptor of its
// type, so a caller that wants the values of a plug-in's types in words loads the plug-in before.
#pragma once

#include "postcard/cli/trace/Filter.h"

#include <string>
#include <vector>

namespace Postcard::Cli::Trace {

struct Options {
   std::vector<std::string> files; // paths, at least one
   Filter filter;                  // which traces are printed
   bool json = false;              // an object per trace, instead of a line for people
   bool follow = false;            // go on with traces that are added to the files later
};

// Prints the traces in `options.files` to standard output, those of several files merged by time.
// Standard error says which traces could not be kept or read. With `follow`, goes on until SIGINT
// or SIGTERM comes, nobody reads standard output any more, or all processes that write the files
// have ended. Returns false when a file cannot be used; standard error says which and why. Throws
// std::system_error when standard output cannot be written for another reason than that nobody
// reads it, and when a process cannot be watched for its end.
//
// Call it once per process: it ignores SIGPIPE and, with `follow`, catches SIGINT and SIGTERM for
// the rest of the process.
bool run(const Options& options);

} // namespace Postcard::Cli::Trace
