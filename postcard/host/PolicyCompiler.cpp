#include "postcard/host/PolicyCompiler.h"

#include "postcard/policy/FeatureToggles.h"
#include "postcard/policy/PolicyBuilder.h"

namespace Postcard::Host {

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
   // Without a commit, since callers only read the ACL. So nobody subscribes to the request record.
   const Kiv::String message =
         result.helper->createPolicy(buildPolicy(policy), matchOptionOf(family));
   if (!message.empty()) {
      result.message = message.str();
      return result;
   }
   // The new helper has this one ACL.
   result.helper.forEachAclConfig(
         [&](const AclConfig& acl) { result.acl = Pello::Ptr<const AclConfig>{&acl}; });
   return result;
}

} // namespace Postcard::Host
