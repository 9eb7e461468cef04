#include "postcard/host/PolicyCompiler.h"

#include "postcard/policy/PolicyBuilder.h"

#include <algorithm>

namespace Cli {

using Agent::Family;

PolicyCompiler::PolicyCompiler(const Agent::PolicyFile& policyFile)
   : host_{Agent::PluginHost::defaultModule()},
     hwCapability_{buildHwCapability(policyFile.hardware)} {
   Agent::applyFeatureToggles(policyFile.featureToggles);
}

PolicyCompiler::Result PolicyCompiler::compile(const Agent::Policy& policy, Family family) const {
   Result result{
         host_.makeHelper(OruPostcardTelemetry::postcardTelemetryRulesClientSmConfigFactory(),
                          hwCapability_),
         nullptr,
         {}};
   const Kiv::String message =
         result.helper->createPolicy(buildPolicy(policy), matchOptionOf(family));
   if (!message.empty()) {
      result.message = message.str();
      return result;
   }
   result.helper.forEachAclConfig(
         [&](const AclConfig& acl) { result.acl = Pello::Ptr<const AclConfig>{&acl}; });
   return result;
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
