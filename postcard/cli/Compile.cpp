// `postcard compile`: makes the ACLs of a policy file through the plug-in and prints them.
#include "Kiv/Hash.h"
#include "postcard/cli/Commands.h"
#include "postcard/cli/Format.h"
#include "postcard/cli/PolicyChoice.h"
#include "postcard/cli/ShowOutput.h"
#include "postcard/json/EntityJson.h"
#include "postcard/report/Compilation.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <iostream>
#include <memory>

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
   auto acls = nlohmann::ordered_json::array();
   compilation.refused = options.choice.compile(
         policyFile, [&](const auto&, auto, const Host::PolicyCompiler::Result& result) {
            compilation.add(*result.acl);
            // JSON is one document, so its ACLs are collected. Text is printed ACL by ACL, so that
            // only one ACL is in memory at a time.
            if (options.format.isJson()) {
               acls.push_back(Json::entityJson(*result.acl));
            } else {
               showOnStandardOutput([&](U32 fd) { result.helper.showPostcardAcl(fd); });
            }
         });
   if (options.format.isJson()) {
      std::cout << Json::documentText(json(compilation, std::move(acls)));
   } else {
      std::cerr << text(compilation); // standard output is the show text and nothing else
   }
   return compilation.refused.empty() ? exitDone : exitRefused;
}

std::function<int()> declare(CLI::App& parser) {
   auto options = std::make_shared<Options>();
   options->choice.declare(parser);
   options->format.declare(parser);
   parser.footer("With --format text, ACLs go to standard output, messages and totals to standard\n"
                 "error. With --format json, one document on standard output holds all of it, and\n"
                 "messages go to standard error as well.\n"
                 "Exit status: 0 done, 1 a policy was refused, 2 bad usage or policy file,\n"
                 "3 the helper module or standard output cannot be used.");
   return [options] {
      return options->choice.run(
            [&](const Policy::PolicyFile& policyFile) { return run(*options, policyFile); });
   };
}

} // namespace

const Command compileCommand{"compile", "Print the ACLs that a policy file becomes", &declare};

} // namespace Postcard::Cli
