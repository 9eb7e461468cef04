#include "cli/Compile.h"

#include "Kiv/Hash.h"
#include "agent/EntityJson.h"
#include "agent/PluginHost.h"
#include "agent/PolicyBuilder.h"
#include "agent/PolicyFile.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

namespace Cli {

namespace {

using Agent::Family;
using OruPostcardTelemetry::PostcardTelemetryAclConfig;

// The command line.
struct Options {
   std::string file;
   std::vector<std::string> policies; // empty: all
   std::string family;                // empty: both
   std::string format = "text";
};

// What was made so far.
struct Totals {
   std::size_t acls = 0;
   std::size_t rules = 0;       // different rules; a port block that occurs twice is one
   std::size_t tcamEntries = 0; // places in the order of matching; each takes a hardware entry
};

// Where ACLs and messages go while the policies are compiled, one at a time.
class Output {
 public:
   virtual ~Output() = default;
   virtual void acl(const Agent::HelperHandle& helper) = 0;
   virtual void refused(const Agent::Policy& policy, Family family, const Kiv::String& message) = 0;
   virtual void finished(const Totals& totals) = 0;
};

// For people: the show text on standard output, everything else on standard error.
class TextOutput : public Output {
 public:
   void acl(const Agent::HelperHandle& helper) override { helper.showPostcardAcl(STDOUT_FILENO); }
   void refused(const Agent::Policy& policy, Family family, const Kiv::String& message) override {
      std::cerr << policy.name.text << ' ' << familyName(family) << ": " << message << '\n';
   }
   void finished(const Totals& totals) override {
      std::cerr << "ACLs: " << totals.acls << ", rules: " << totals.rules
                << ", TCAM entries: " << totals.tcamEntries << '\n';
   }
};

// For programs: one document at the end. Messages go to standard error as well.
class JsonOutput : public Output {
 public:
   void acl(const Agent::HelperHandle& helper) override {
      helper.forEachAclConfig([&](const PostcardTelemetryAclConfig& config) {
         acls_.push_back(Agent::entityJson(config));
      });
   }
   void refused(const Agent::Policy& policy, Family family, const Kiv::String& message) override {
      refused_.push_back({{"policy", policy.name.text},
                          {"family", familyName(family)},
                          {"message", message.view()}});
      text_.refused(policy, family, message);
   }
   void finished(const Totals& totals) override {
      const nlohmann::ordered_json document{{"schema", Agent::aclJsonSchema},
                                            {"acls", std::move(acls_)},
                                            {"refused", std::move(refused_)},
                                            {"totals",
                                             {{"acls", totals.acls},
                                              {"rules", totals.rules},
                                              {"tcamEntries", totals.tcamEntries}}}};
      std::cout << document.dump(2) << std::endl;
   }

 private:
   TextOutput text_;
   nlohmann::ordered_json acls_ = nlohmann::ordered_json::array();
   nlohmann::ordered_json refused_ = nlohmann::ordered_json::array();
};

// Compiles policies into an output.
class Compiler {
 public:
   Compiler(const Agent::PolicyFile& file, Output& output)
      : host_{Agent::PluginHost::defaultModule()},
        hwCapability_{buildHwCapability(file.hardware)},
        output_{output} {}

   // Makes the ACL of one policy in one family. A helper of its own per ACL keeps the order of the
   // file, and no more than one ACL in memory.
   void compile(const Agent::Policy& policy, Family family) {
      const Pello::Ptr<PolicyMap::PolicyMapSmCommonData> policyData = buildPolicy(policy);
      const Agent::HelperHandle helper = host_.makeHelper(
            OruPostcardTelemetry::postcardTelemetryRulesClientSmConfigFactory(), hwCapability_);
      const Kiv::String message = helper->createPolicy(policyData, matchOptionOf(family));
      if (!message.empty()) {
         refused_ = true;
         output_.refused(policy, family, message);
         return;
      }
      helper.forEachAclConfig([&](const PostcardTelemetryAclConfig& config) { count(config); });
      output_.acl(helper);
   }

   // Writes the totals and returns the exit code.
   int finish() {
      output_.finished(totals_);
      return refused_ ? exitRefused : exitDone;
   }

 private:
   void count(const PostcardTelemetryAclConfig& config) {
      totals_.acls += 1;
      totals_.rules += config.ruleByNames();
      totals_.tcamEntries += config.ruleByIndexs();
   }

   Agent::PluginHost host_;
   Pello::Ptr<const PostcardTelemetry::HwCapability> hwCapability_;
   Output& output_;
   Totals totals_;
   bool refused_ = false;
};

bool wanted(const Options& options, const Agent::Policy& policy) {
   return options.policies.empty() ||
          std::ranges::find(options.policies, policy.name.text) != options.policies.end();
}

bool wanted(const Options& options, const Agent::Policy& policy, Family family) {
   return !policy.interfaces(family).empty() &&
          (options.family.empty() || options.family == familyName(family));
}

// Reports the policies that were asked for but are not in the file; returns whether there are any.
bool reportUnknownPolicies(const Options& options, const Agent::PolicyFile& file) {
   bool unknown = false;
   for (const std::string& name : options.policies) {
      if (std::ranges::none_of(file.policies, [&](const Agent::Policy& policy) {
             return policy.name.text == name;
          })) {
         std::cerr << options.file << ": there is no policy '" << name << "'\n";
         unknown = true;
      }
   }
   return unknown;
}

int compileFile(const Options& options, const Agent::PolicyFile& file) {
   TextOutput text;
   JsonOutput json;
   Output& output = options.format == "json" ? static_cast<Output&>(json) : text;
   Compiler compiler{file, output};
   for (const Agent::Policy& policy : file.policies) {
      if (!wanted(options, policy)) {
         continue;
      }
      for (const Family family : {Family::ipv4, Family::ipv6}) {
         if (wanted(options, policy, family)) {
            compiler.compile(policy, family);
         }
      }
   }
   return compiler.finish();
}

int run(const Options& options) {
   const Agent::LoadResult loaded = Agent::loadPolicyFile(options.file);
   if (!loaded.policyFile) {
      std::cerr << formatFindings(loaded);
      return exitUsage;
   }
   if (reportUnknownPolicies(options, *loaded.policyFile)) {
      return exitUsage;
   }
   // The same file prints the same text every time, down to the order of its interfaces.
   Kiv::processHashSeedIs(0);
   Agent::applyFeatureToggles(loaded.policyFile->featureToggles);
   try {
      return compileFile(options, *loaded.policyFile);
   } catch (const Agent::PluginError& error) {
      std::cerr << error.what() << '\n';
      return exitEnvironment;
   }
}

std::function<int()> declare(CLI::App& parser) {
   auto options = std::make_shared<Options>();
   parser.add_option("FILE", options->file, "policy file (YAML or JSON)")->required();
   parser.add_option("--policy", options->policies, "only this policy; may be given several times")
         ->type_name("NAME")
         ->expected(1)
         ->take_all();
   parser.add_option("--family", options->family, "only this address family")
         ->check(CLI::IsMember({"ipv4", "ipv6"}));
   parser.add_option("--format", options->format, "text for people, json for programs")
         ->check(CLI::IsMember({"text", "json"}))
         ->capture_default_str();
   parser.footer("The ACLs go to standard output, messages and totals to standard error.\n"
                 "Exit status: 0 done, 1 a policy was refused, 2 bad usage or policy file,\n"
                 "3 the helper module cannot be used.");
   return [options] { return run(*options); };
}

} // namespace

const Command compileCommand{"compile", "Print the ACLs that a policy file becomes", &declare};

} // namespace Cli
