#include "postcard/cli/PolicyChoice.h"

#include "postcard/cli/Command.h"
#include "postcard/policy/file/PolicyFile.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <iostream>

namespace Postcard::Cli {

void PolicyChoice::declare(CLI::App& parser) {
   parser.add_option("FILE", file_, "policy file (YAML or JSON)")->required();
   parser.add_option("--policy", policies_, "only this policy; may be given several times")
         ->type_name("NAME")
         ->expected(1) // name per --policy: otherwise a FILE behind it would count as another name
         ->take_all();
   parser.add_option("--family", family_, "only this address family")
         ->check(CLI::IsMember({"ipv4", "ipv6"}));
}

// Whether the file has every policy named by --policy. Each name that it lacks is reported.
bool PolicyChoice::hasChosenPolicies(const Policy::PolicyFile& policyFile) const {
   bool all = true;
   for (const std::string& name : policies_) {
      if (std::ranges::none_of(policyFile.policies, [&](const Policy::Policy& policy) {
             return policy.name.text == name;
          })) {
         std::cerr << file_ << ": there is no policy '" << name << "'\n";
         all = false;
      }
   }
   return all;
}

int PolicyChoice::run(const std::function<int(const Policy::PolicyFile&)>& work) const {
   const Policy::File::LoadResult loaded = Policy::File::loadPolicyFile(file_);
   if (!loaded.policyFile) {
      std::cerr << formatFindings(loaded);
      return exitUsage;
   }
   if (!hasChosenPolicies(*loaded.policyFile)) {
      return exitUsage;
   }
   try {
      return work(*loaded.policyFile);
   } catch (const Host::PluginError& error) {
      std::cerr << error.what() << '\n';
      return exitEnvironment;
   }
}

bool PolicyChoice::chooses(const Policy::Policy& policy, Policy::Family family) const {
   const bool named =
         policies_.empty() || std::ranges::find(policies_, policy.name.text) != policies_.end();
   const bool ofFamily = family_.empty() || family_ == familyName(family);
   // The helper ends the process when it is given a family without interfaces.
   return named && ofFamily && !policy.interfaces(family).empty();
}

std::vector<Report::Refusal> PolicyChoice::compile(const Policy::PolicyFile& policyFile,
                                                   const Visit& visit) const {
   const Host::PolicyCompiler compiler{policyFile};
   std::vector<Report::Refusal> refused;
   for (const Policy::Policy& policy : policyFile.policies) {
      for (const Policy::Family family : {Policy::Family::ipv4, Policy::Family::ipv6}) {
         if (!chooses(policy, family)) {
            continue;
         }
         const Host::PolicyCompiler::Result result = compiler.compile(policy, family);
         if (result.acl != nullptr) {
            visit(policy, family, result);
         } else {
            refused.push_back({policy.name.text, family, result.message});
            // At once and not at the end: on a terminal the message then stands between the ACLs of
            // the policies before and behind.
            std::cerr << text(refused.back());
         }
      }
   }
   return refused;
}

} // namespace Postcard::Cli
