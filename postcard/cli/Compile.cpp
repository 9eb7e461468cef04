// `postcard compile`: makes the ACLs of a policy file through the plug-in and prints them.
#include "Kiv/Hash.h"
#include "postcard/cli/Commands.h"
#include "postcard/cli/shared/Format.h"
#include "postcard/cli/shared/PolicyChoice.h"
#include "postcard/cli/shared/ShowOutput.h"
#include "postcard/cli/shared/Work.h"
#include "postcard/report/Compilation.h"
#include "postcard/report/RuleList.h"

#include <CLI/CLI.hpp>

#include <iostream>
#include <memory>
#include <optional>
#include <string_view>

namespace Postcard::Cli {

namespace {

struct Options {
   PolicyChoice choice;
   Format format;
};

int run(const Options& options, const Policy::PolicyFile& policyFile) {
   // With a fixed seed the same file prints the same text every time. The order of the interfaces
   // depends on the seed, because a hash collection holds them.
   Kiv::processHashSeedIs(0);
   Report::Compilation compilation;
   std::optional<Report::CompilationWriter> document;
   if (options.format.isJson()) {
      document.emplace([](std::string_view piece) { std::cout << piece; });
   }
   // ACLs are printed one by one, so that only one is in memory at a time.
   compilation.refused =
         options.choice.compile(policyFile, [&](const Policy::Policy& policy, Policy::Family family,
                                                const Host::PolicyCompiler::Result& result) {
            const Host::CompiledPolicy compiled{policy, family, policyFile.hardware.tcpFlags,
                                                *result.acl};
            compilation.add(*result.acl);
            if (document) {
               document->add(compiled);
            } else if (options.format.isList()) {
               Report::writeRuleList(compiled, std::cout);
            } else {
               showOnStandardOutput([&](U32 fd) { result.helper.showPostcardAcl(fd); });
            }
         });
   if (document) {
      document->finish(compilation);
   } else {
      messages() << text(compilation); // standard output holds ACLs and nothing else
   }
   return compilation.refused.empty() ? exitDone : exitRefused;
}

std::function<int()> declare(CLI::App& parser) {
   auto options = std::make_shared<Options>();
   options->choice.declare(parser);
   options->format.declareWithList(parser);
   parser.footer(
         "With --format text and list, ACLs go to standard output, messages and totals to\n"
         "standard error. list has a line for each entry: its index, the name of its rule,\n"
         "what it matches, its actions, and the place in the file that it comes from. With\n"
         "the format json, one document on standard output holds all of it, and messages go\n"
         "to standard error as well.\n"
         "Exit status: 0 done, 1 a policy was refused, 2 bad usage or policy file,\n"
         "3 the helper module or standard output cannot be used.");
   return [options] {
      return options->choice.run(options->format, [&](const Policy::PolicyFile& policyFile) {
         return run(*options, policyFile);
      });
   };
}

} // namespace

const Command compileCommand{"compile", "Print the ACLs that a policy file becomes", &declare};

} // namespace Postcard::Cli
