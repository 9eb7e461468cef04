// `HelperRecords`: a helper with its two records. Relies on the helper's rooms; `PolicyRecords.h`
// builds what it is fed with.
#pragma once

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Helper.h"

#include <string_view>

namespace TestSupport {

struct HelperRecords {
   using Helper = OruPostcardTelemetry::OruPostcardPolicyAclHelper;
   using Config = OruPostcardTelemetry::PostcardTelemetryAclConfig;

   // The class of the helper may be one that derives from the real one.
   template <class AnyHelper = Helper>
   static Pello::Ptr<AnyHelper>
   make(const Pello::Ptr<OruPostcardTelemetry::PostcardTelemetryRulesClientSmConfig>& config,
        const Pello::Ptr<PostcardTelemetry::HwCapability>& capability) {
      return new AnyHelper{config, capability};
   }

   explicit HelperRecords(bool tcpFlags = true) {
      hwCapability->tcpFlagsSupportedIs(tcpFlags);
      helper = make(clientConfig, hwCapability);
   }

   Pello::Ptr<Config> config(std::string_view key) const {
      return helper->aclConfigColl(Pello::String{key});
   }

   Pello::Ptr<OruPostcardTelemetry::PostcardTelemetryRulesClientSmConfig> clientConfig{
         new OruPostcardTelemetry::PostcardTelemetryRulesClientSmConfig};
   Pello::Ptr<PostcardTelemetry::HwCapability> hwCapability{new PostcardTelemetry::HwCapability};
   Pello::Ptr<Helper> helper;
};

} // namespace TestSupport
