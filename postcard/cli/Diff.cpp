// `postcard diff`: what differs between two policy files: policies, interfaces, packets that are
// treated otherwise, entries, and what an agent would do.
#include "Pello/VisibleCharacters.h"
#include "postcard/cli/Commands.h"
#include "postcard/cli/shared/Comparison.h"
#include "postcard/cli/shared/Format.h"
#include "postcard/cli/shared/PolicyChoice.h"
#include "postcard/cli/shared/Work.h"

#include <CLI/CLI.hpp>

#include <memory>
#include <new>

namespace Postcard::Cli {

namespace {

using Policy::File::LoadResult;

struct Options {
   std::string before;
   std::string after;
   ProgressOption progress;
   Format format;
};

LoadResult load(const std::string& file) {
   workIs("reading policy file " + Pello::escaped(file));
   return Policy::File::loadPolicyFile(file);
}

int run(const Options& options) {
   std::set_new_handler(endForShortMemory);
   if (isStandardInput(options.before) && isStandardInput(options.after)) {
      messages() << "postcard diff: only one of OLD and NEW can be standard input\n";
      return exitUsage;
   }
   const Progress progress{options.progress.isWanted()};
   const LoadResult before = load(options.before);
   const LoadResult after = load(options.after);
   return printDifferences(before, after, options.format);
}

std::function<int()> declare(CLI::App& parser) {
   auto options = std::make_shared<Options>();
   parser.add_option("OLD", options->before, "policy file (YAML or JSON); - is standard input")
         ->required();
   parser.add_option("NEW", options->after, "another version of it; - is standard input")
         ->required();
   options->progress.declare(parser);
   options->format.declare(parser);
   parser.footer("Prints which policies and interfaces come, go and change, which packets are\n"
                 "treated otherwise, each with one that explain takes, which entries come, go and\n"
                 "move, and what an agent that runs OLD would do with NEW. A class whose packets\n"
                 "need too much time or memory is \"not decided\", and then the files differ.\n"
                 "Exit status: 0 no difference, 1 the files differ, 2 bad usage or policy file,\n"
                 "3 the helper module or standard output cannot be used.");
   return [options] { return run(*options); };
}

} // namespace

const Command diffCommand{"diff", "Compare two policy files", &declare};

} // namespace Postcard::Cli
