#include "postcard/host/PolicyCompiler.h"

#include "postcard/policy/FeatureToggles.h"
#include "postcard/policy/PolicyBuilder.h"

#include <algorithm>

namespace Postcard::Host {

using Policy::Family;

PolicyCompiler::PolicyCompiler(const Policy::PolicyFile& policyFile)
   : host_{PluginHost::defaultModule()}, hwCapability_{buildHwCapability(policyFile.hardware)} {
   Policy::applyFeatureToggles(policyFile.featureToggles);
}

PolicyCompiler::Result PolicyCompiler::compile(const Policy::Policy& policy,
                                               Policy::Family family) const {
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

std::vector<const Policy::Class*> classesInOrder(const Policy::Policy& policy,
                                                 Policy::Family family) {
   std::vector<const Policy::Class*> classes;
   for (const Policy::Class& each : policy.classes) {
      if (each.filter(family) != nullptr) {
         classes.push_back(&each);
      }
   }
   std::ranges::sort(classes, {}, &Policy::Class::priority);
   return classes;
}

std::string_view classOfRule(std::string_view rule, Policy::Family family) {
   const std::string mark = "-" + std::string{familyName(family)} + "-";
   return rule.substr(0, rule.rfind(mark));
}

} // namespace Postcard::Host
