#include "postcard/cli/PolicyChoice.h"

#include "postcard/cli/Command.h"
#include "postcard/host/PluginHost.h"
#include "postcard/policy/file/PolicyFile.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <iostream>
#include <optional>

namespace Postcard::Cli {

using Policy::Family;

namespace {

// Absent when the file or the choice is wrong, which is then reported.
std::optional<Policy::PolicyFile> load(const PolicyChoice& choice) {
   Policy::File::LoadResult loaded = Policy::File::loadPolicyFile(choice.file);
   if (!loaded.policyFile) {
      std::cerr << formatFindings(loaded);
      return std::nullopt;
   }
   bool known = true;
   for (const std::string& name : choice.policies) {
      if (std::ranges::none_of(loaded.policyFile->policies, [&](const Policy::Policy& policy) {
             return policy.name.text == name;
          })) {
         std::cerr << choice.file << ": there is no policy '" << name << "'\n";
         known = false;
      }
   }
   return known ? std::move(loaded.policyFile) : std::nullopt;
}

} // namespace

void PolicyChoice::declare(CLI::App& parser) {
   parser.add_option("FILE", file, "policy file (YAML or JSON)")->required();
   parser.add_option("--policy", policies, "only this policy; may be given several times")
         ->type_name("NAME")
         ->expected(1)
         ->take_all();
   parser.add_option("--family", family, "only this address family")
         ->check(CLI::IsMember({"ipv4", "ipv6"}));
}

int PolicyChoice::run(const std::function<int(const Policy::PolicyFile&)>& work) const {
   const std::optional<Policy::PolicyFile> policyFile = load(*this);
   if (!policyFile) {
      return exitUsage;
   }
   try {
      return work(*policyFile);
   } catch (const Host::PluginError& error) {
      std::cerr << error.what() << '\n';
      return exitEnvironment;
   }
}

void PolicyChoice::forEach(
      const Policy::PolicyFile& policyFile,
      const std::function<void(const Policy::Policy&, Policy::Family)>& visit) const {
   for (const Policy::Policy& policy : policyFile.policies) {
      if (!policies.empty() && std::ranges::find(policies, policy.name.text) == policies.end()) {
         continue;
      }
      for (const Policy::Family each : {Policy::Family::ipv4, Policy::Family::ipv6}) {
         if (!policy.interfaces(each).empty() && (family.empty() || family == familyName(each))) {
            visit(policy, each);
         }
      }
   }
}

void declareFormat(CLI::App& parser, std::string& format) {
   parser.add_option("--format", format, "text for people, json for programs")
         ->check(CLI::IsMember({"text", "json"}))
         ->capture_default_str();
}

void reportRefused(const Policy::Policy& policy, Policy::Family family,
                   const std::string& message) {
   std::cerr << policy.name.text << ' ' << familyName(family) << ": " << message << '\n';
}

nlohmann::ordered_json refusedJson(const Policy::Policy& policy, Policy::Family family,
                                   const std::string& message) {
   return {{"policy", policy.name.text}, {"family", familyName(family)}, {"message", message}};
}

} // namespace Postcard::Cli
