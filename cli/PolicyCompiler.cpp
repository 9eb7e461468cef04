#include "cli/PolicyCompiler.h"

#include "agent/PolicyBuilder.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <iostream>

namespace Cli {

using Agent::Family;

void PolicyChoice::declare(CLI::App& parser) {
   parser.add_option("FILE", file, "policy file (YAML or JSON)")->required();
   parser.add_option("--policy", policies, "only this policy; may be given several times")
         ->type_name("NAME")
         ->expected(1)
         ->take_all();
   parser.add_option("--family", family, "only this address family")
         ->check(CLI::IsMember({"ipv4", "ipv6"}));
}

std::optional<Agent::PolicyFile> PolicyChoice::load() const {
   Agent::LoadResult loaded = Agent::loadPolicyFile(file);
   if (!loaded.policyFile) {
      std::cerr << formatFindings(loaded);
      return std::nullopt;
   }
   bool known = true;
   for (const std::string& name : policies) {
      if (std::ranges::none_of(loaded.policyFile->policies, [&](const Agent::Policy& policy) {
             return policy.name.text == name;
          })) {
         std::cerr << file << ": there is no policy '" << name << "'\n";
         known = false;
      }
   }
   return known ? std::move(loaded.policyFile) : std::nullopt;
}

void PolicyChoice::forEach(
      const Agent::PolicyFile& policyFile,
      const std::function<void(const Agent::Policy&, Agent::Family)>& visit) const {
   for (const Agent::Policy& policy : policyFile.policies) {
      if (!policies.empty() && std::ranges::find(policies, policy.name.text) == policies.end()) {
         continue;
      }
      for (const Family each : {Family::ipv4, Family::ipv6}) {
         if (!policy.interfaces(each).empty() && (family.empty() || family == familyName(each))) {
            visit(policy, each);
         }
      }
   }
}

PolicyCompiler::PolicyCompiler(const Agent::PolicyFile& policyFile)
   : host_{Agent::PluginHost::defaultModule()},
     hwCapability_{buildHwCapability(policyFile.hardware)} {
   Agent::applyFeatureToggles(policyFile.featureToggles);
}

PolicyCompiler::Result PolicyCompiler::compile(const Agent::Policy& policy, Family family) const {
   const Agent::HelperHandle helper = host_.makeHelper(
         OruPostcardTelemetry::postcardTelemetryRulesClientSmConfigFactory(), hwCapability_);
   const Kiv::String message = helper->createPolicy(buildPolicy(policy), matchOptionOf(family));
   if (!message.empty()) {
      return {nullptr, message.str()};
   }
   Result result;
   helper.forEachAclConfig(
         [&](const AclConfig& acl) { result.acl = Pello::Ptr<const AclConfig>{&acl}; });
   return result;
}

void reportRefused(const Agent::Policy& policy, Family family, const std::string& message) {
   std::cerr << policy.name.text << ' ' << familyName(family) << ": " << message << '\n';
}

std::vector<const Agent::Class*> classesInOrder(const Agent::Policy& policy, Family family) {
   std::vector<const Agent::Class*> classes;
   for (const Agent::Class& each : policy.classes) {
      if (each.filter(family) != nullptr) {
         classes.push_back(&each);
      }
   }
   std::ranges::sort(classes, {}, &Agent::Class::priority);
   return classes;
}

std::string_view classOfRule(std::string_view rule, Family family) {
   const std::string mark = "-" + std::string{familyName(family)} + "-";
   return rule.substr(0, rule.rfind(mark));
}

} // namespace Cli
