// A module whose helper refuses policies for reasons of its own: one named "early" before anything
// is made of it, one named "half" when it has no interface yet, one named "late" after all of it.
// Of one named "nothing" it makes nothing and says that it did. One named "fickle" it forgets when
// it is to be made anew.
#include "Kiv/PlatformVersion.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Helper.h"

namespace {

class Choosy : public OruPostcardTelemetry::OruPostcardPolicyAclHelper {
 public:
   using OruPostcardPolicyAclHelper::OruPostcardPolicyAclHelper;

   Kiv::String createPolicy(const PolicyDataPtr& policyData, MatchOption matchOption) override {
      const auto name = policyData->key().strDesc();
      if (name == "early") {
         return "No label is left";
      }
      if (name == "half") {
         createAclConfig(policyData, matchOption);
         return "No port is left";
      }
      if (name == "nothing") {
         return {};
      }
      const Kiv::String result = OruPostcardPolicyAclHelper::createPolicy(policyData, matchOption);
      return name == "late" ? Kiv::String{"No meter is left"} : result;
   }
   Kiv::String recreatePolicy(const PolicyDataPtr& policyData, MatchOption matchOption) override {
      if (policyData->key().strDesc() == "fickle") {
         aclConfigCollDel(getAclConfigKey(policyData, matchOption));
         return "No meter is left";
      }
      return OruPostcardPolicyAclHelper::recreatePolicy(policyData, matchOption);
   }
};

} // namespace

extern "C" {

extern const U32 oruPostcardPlatformVersion;
const U32 oruPostcardPlatformVersion = Kiv::platformVersion;

PolicyMap::PolicyMapAclHelper* oruPostcardPolicyAclHelperFactory(
      OruPostcardTelemetry::PostcardTelemetryRulesClientSmConfig* clientConfig,
      const PostcardTelemetry::HwCapability* hwCapability);

PolicyMap::PolicyMapAclHelper* oruPostcardPolicyAclHelperFactory(
      OruPostcardTelemetry::PostcardTelemetryRulesClientSmConfig* clientConfig,
      const PostcardTelemetry::HwCapability* hwCapability) {
   return new Choosy{clientConfig, hwCapability};
}

} // extern "C"
