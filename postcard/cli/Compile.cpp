#include "postcard/cli/Compile.h"

#include "Kiv/Hash.h"
#include "postcard/cli/PolicyChoice.h"
#include "postcard/cli/ShowOutput.h"
#include "postcard/host/PolicyCompiler.h"
#include "postcard/json/EntityJson.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <iostream>
#include <memory>
#include <string>

namespace Postcard::Cli {

namespace {

using OruPostcardTelemetry::PostcardTelemetryAclConfig;
using Policy::Family;

// The command line.
struct Options {
   PolicyChoice choice;
   std::string format = "text";
};

// What was made so far.
struct Totals {
   std::size_t acls = 0;
   std::size_t rules = 0;       // different rules; a port block that occurs twice is one
   std::size_t tcamEntries = 0; // places in the order of matching; each takes a hardware entry
   std::size_t refused = 0;     // policies and families without an ACL
};

// Where ACLs and messages go while the policies are compiled, one at a time.
class Output {
 public:
   virtual ~Output() = default;
   virtual void acl(const Host::HelperHandle& helper) = 0;
   virtual void refused(const Policy::Policy& policy, Policy::Family family,
                        const std::string& message) = 0;
   virtual void finished(const Totals& totals) = 0;
};

// For people: the show text on standard output, everything else on standard error.
class TextOutput : public Output {
 public:
   void acl(const Host::HelperHandle& helper) override {
      showOnStandardOutput([&](U32 fd) { helper.showPostcardAcl(fd); });
   }
   void refused(const Policy::Policy& policy, Policy::Family family,
                const std::string& message) override {
      reportRefused(policy, family, message);
   }
   void finished(const Totals& totals) override {
      std::cerr << "ACLs: " << totals.acls << ", rules: " << totals.rules
                << ", TCAM entries: " << totals.tcamEntries << '\n';
   }
};

// For programs: one document at the end. Messages go to standard error as well.
class JsonOutput : public Output {
 public:
   void acl(const Host::HelperHandle& helper) override {
      helper.forEachAclConfig([&](const PostcardTelemetryAclConfig& config) {
         acls_.push_back(Json::entityJson(config));
      });
   }
   void refused(const Policy::Policy& policy, Policy::Family family,
                const std::string& message) override {
      refused_.push_back(refusedJson(policy, family, message));
      reportRefused(policy, family, message);
   }
   void finished(const Totals& totals) override {
      const nlohmann::ordered_json document{{"schema", Json::aclJsonSchema},
                                            {"acls", std::move(acls_)},
                                            {"refused", std::move(refused_)},
                                            {"totals",
                                             {{"acls", totals.acls},
                                              {"rules", totals.rules},
                                              {"tcamEntries", totals.tcamEntries}}}};
      std::cout << document.dump(2) << std::endl;
   }

 private:
   nlohmann::ordered_json acls_ = nlohmann::ordered_json::array();
   nlohmann::ordered_json refused_ = nlohmann::ordered_json::array();
};

Totals compileInto(Output& output, const PolicyChoice& choice,
                   const Policy::PolicyFile& policyFile) {
   const Host::PolicyCompiler compiler{policyFile};
   Totals totals;
   choice.forEach(policyFile, [&](const Policy::Policy& policy, Policy::Family family) {
      const Host::PolicyCompiler::Result result = compiler.compile(policy, family);
      if (result.acl == nullptr) {
         totals.refused += 1;
         output.refused(policy, family, result.message);
         return;
      }
      totals.acls += 1;
      totals.rules += result.acl->ruleByNames();
      totals.tcamEntries += result.acl->ruleByIndexs();
      output.acl(result.helper);
   });
   output.finished(totals);
   return totals;
}

int run(const Options& options, const Policy::PolicyFile& policyFile) {
   // The same file prints the same text every time, down to the order of its interfaces.
   Kiv::processHashSeedIs(0);
   TextOutput text;
   JsonOutput json;
   Output& output = options.format == "json" ? static_cast<Output&>(json) : text;
   const Totals totals = compileInto(output, options.choice, policyFile);
   return totals.refused == 0 ? exitDone : exitRefused;
}

std::function<int()> declare(CLI::App& parser) {
   auto options = std::make_shared<Options>();
   options->choice.declare(parser);
   declareFormat(parser, options->format);
   parser.footer("The ACLs go to standard output, messages and totals to standard error; as JSON,\n"
                 "all is one document on standard output, and messages are told there as well.\n"
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
