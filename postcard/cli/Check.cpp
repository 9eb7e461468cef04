// `postcard check`: how many TCAM entries the policies of a file need, and whether a budget of
// entries suffices.
#include "postcard/cli/Commands.h"
#include "postcard/cli/Count.h"
#include "postcard/cli/Format.h"
#include "postcard/cli/PolicyChoice.h"
#include "postcard/report/Cost.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <memory>
#include <optional>

namespace Postcard::Cli {

namespace {

struct Options {
   PolicyChoice choice;
   std::optional<std::size_t> budget; // TCAM entries; absent: no budget is checked
   Format format;
};

int run(const Options& options, const Policy::PolicyFile& policyFile) {
   Report::Cost cost;
   cost.budget = options.budget;
   cost.refused =
         options.choice.compile(policyFile, [&](const Policy::Policy& policy, Policy::Family family,
                                                const Host::PolicyCompiler::Result& result) {
            cost.add(Report::costOf(policy, family, *result.acl));
         });
   // Also when a policy was refused: the cost of the others is worth knowing.
   options.format.print(cost);
   return cost.fits() && cost.refused.empty() ? exitDone : exitRefused;
}

std::function<int()> declare(CLI::App& parser) {
   auto options = std::make_shared<Options>();
   options->choice.declare(parser);
   addCount(parser, "--budget", options->budget, "TCAM entries that the hardware has");
   options->format.declare(parser);
   parser.footer("Prints the TCAM entries of every policy, family and class.\n"
                 "Exit status: 0 done, 1 a policy was refused or the entries exceed the budget,\n"
                 "2 bad usage or policy file, 3 the helper module or standard output cannot\n"
                 "be used.");
   return [options] {
      return options->choice.run(options->format, [&](const Policy::PolicyFile& policyFile) {
         return run(*options, policyFile);
      });
   };
}

} // namespace

const Command checkCommand{"check", "Check a policy file and print what it costs", &declare};

} // namespace Postcard::Cli
