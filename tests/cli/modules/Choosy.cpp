// A module whose helper refuses policies for reasons of its own: one named "early" before anything
// is made of it, one named "late" after that. Of one named "nothing" it makes nothing and says that
// it did.
#include "Kiv/PlatformVersion.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Helper.h"

namespace {

class Choosy : public OruPostcardTelemetry::OruPostcardPolicyAclHelper {
 public:
   using OruPostcardPolicyAclHelper::OruPostcardPolicyAclHelper;

   Kiv::String createPolicy(const PolicyData& policyData, MatchOption matchOption) override {
      const auto name = policyData->key().strDesc();
      if (name == "early") {
         return "No label is left";
      }
      if (name == "nothing") {
         return {};
      }
      const Kiv::String result = OruPostcardPolicyAclHelper::createPolicy(policyData, matchOption);
      return name == "late" ? Kiv::String{"No meter is left"} : result;
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
